#include "tests/trace/next_sink.h"

#include <atomic>
#include <cstdarg>
#include <stdexcept>

#include "trace/trace_sink.h"

namespace {

// Not in the sink: in here, too, the name "Debug" means the program's.
std::atomic<bool> g_isValid = true;
std::atomic<bool> g_isThrowing = false;
std::atomic<int> g_lines = 0;

}  // namespace

class NextSink final : public ITraceSink {
 public:
  void Placeholder0() override {}
  void Placeholder1() override {}
  bool IsValid() override {
    if (g_isThrowing) {
      throw std::runtime_error("sink");
    }
    return g_isValid;
  }
  void Placeholder3() override {}
  void Placeholder4() override {}
  void Placeholder5() override {}
  void Placeholder6() override {}
  void PlainOutput(const char* /*format*/, va_list /*arguments*/, const char* /*name*/) override {
    ++g_lines;
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
