#include <benchmark/benchmark.h>
#include <glib.h>

#include "bench/launch_hosts.h"

namespace {

void Launch(benchmark::State& state, Host host) {
  const HostState hostState(host);
  char program[] = "/bin/true";
  char* arguments[] = {program, nullptr};
  for (auto _ : state) {
    gint status = 0;
    // With something to do in the child, as anyone has who resets what the host has set.
    Require(g_spawn_sync(
                nullptr, arguments, nullptr, G_SPAWN_DEFAULT, [](gpointer) {}, nullptr, nullptr,
                nullptr, &status, nullptr) != 0,
            "g_spawn_sync");
  }
}
BENCHMARK_CAPTURE(Launch, small, Host::SMALL)->Name("launch_small/GLib")->UseRealTime();
BENCHMARK_CAPTURE(Launch, big, Host::BIG)->Name("launch_big/GLib")->UseRealTime();
BENCHMARK_CAPTURE(Launch, many, Host::MANY_DESCRIPTORS)
    ->Name("launch_descriptors/GLib")
    ->UseRealTime();

}  // namespace
