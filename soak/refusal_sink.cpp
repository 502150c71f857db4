#include "soak/refusal_sink.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string_view>
#include <utility>

#include "tests/support/default_sink.h"

namespace {

constexpr std::array<std::string_view, 2> REFUSALS = {
    "\nCTaskSerializer     : ## ERROR! Task queue for priority %d is full",
    "\nCTaskSerializer     : Manager locked for Tasks at level %d. Task ignored!"};

constexpr size_t LONGEST_LINE = 4096;

thread_local bool t_hasRefused = false;

}  // namespace

class CRefusalSink final : public DefaultSink {
 public:
  [[gnu::format(printf, 2, 0)]] void Output(const char* format, va_list arguments,
                                            const char* /*moduleName*/) override {
    std::array<char, LONGEST_LINE> line;
    vsnprintf(line.data(), line.size(), format, arguments);
    for (const std::string_view refusal : REFUSALS) {
      t_hasRefused = t_hasRefused || refusal == format;
    }
  }
};

// The trace client of the module looks this name up.
[[gnu::visibility("default")]] CRefusalSink Debug;

bool TakeRefusal() { return std::exchange(t_hasRefused, false); }
