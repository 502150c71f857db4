#include "tests/trace/next_sink.h"

#include <atomic>
#include <cstdarg>
#include <stdexcept>

#include "tests/support/default_sink.h"

namespace {

// Not in the sink: in here, too, the name "Debug" means the program's.
std::atomic<bool> g_isValid = true;
std::atomic<bool> g_isThrowing = false;
std::atomic<int> g_lines = 0;

}  // namespace

class NextSink final : public DefaultSink {
 public:
  constexpr NextSink() = default;

  bool IsValid() override {
    if (g_isThrowing) {
      throw std::runtime_error("sink");
    }
    return g_isValid;
  }
  void Output(const char* /*format*/, va_list /*arguments*/, const char* /*name*/) override {
    ++g_lines;
  }
};

extern constinit NextSink Debug;
constinit NextSink Debug;

void SetNextSinkValid(bool isValid) { g_isValid = isValid; }
void SetNextSinkThrowing(bool isThrowing) { g_isThrowing = isThrowing; }
int TakeLinesOfNextSink() { return g_lines.exchange(0); }
