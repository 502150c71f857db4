#include <benchmark/benchmark.h>

#define BOOST_PROCESS_USE_STD_FS  // nothing to be linked
#include <boost/process.hpp>

#include "bench/launch_hosts.h"

namespace {

void Launch(benchmark::State& state, Host host) {
  const HostState hostState(host);
  for (auto _ : state) {
    boost::process::child child("/bin/true");
    child.wait();
    Require(child.exit_code() == 0, "boost::process::child");
  }
}
BENCHMARK_CAPTURE(Launch, small, Host::SMALL)->Name("launch_small/Boost.Process")->UseRealTime();
BENCHMARK_CAPTURE(Launch, big, Host::BIG)->Name("launch_big/Boost.Process")->UseRealTime();
BENCHMARK_CAPTURE(Launch, many, Host::MANY_DESCRIPTORS)
    ->Name("launch_descriptors/Boost.Process")
    ->UseRealTime();

}  // namespace
