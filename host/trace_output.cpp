// The trace sink that em_host exports to the modules that it loads: their lines go to standard
// error, each on a line of its own.

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "trace/trace_sink.h"

namespace {

std::string Format(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));

// Empty when memory is exhausted.
std::string Format(const char* format, va_list arguments) {
  char* text = nullptr;
  const int length = vasprintf(&text, format, arguments);
  if (length < 0) {
    return {};
  }
  const std::unique_ptr<char, decltype(&free)> owner(text, &free);
  return {text, static_cast<size_t>(length)};
}

// Trace texts include newlines before and after the line, for log files that are only appended to.
// Empty when the text holds nothing else.
std::string WholeLine(const std::string& text) {
  const size_t begin = text.find_first_not_of('\n');
  if (begin == std::string::npos) {
    return {};
  }
  return text.substr(begin, text.find_last_not_of('\n') + 1 - begin) + "\n";
}

}  // namespace

class CTraceOutput final : public ITraceSink {
 public:
  void Placeholder0() override {}
  void Placeholder1() override {}
  bool IsValid() override { return true; }
  void Placeholder3() override {}
  void Placeholder4() override {}
  void Placeholder5() override {}
  void Placeholder6() override {}

  [[gnu::format(printf, 2, 0)]] void PlainOutput(const char* format, va_list arguments,
                                                 const char* moduleName) override {
    Output(format, arguments, moduleName);
  }

  // One call writes the line, so that lines of several threads do not mix. A line that cannot be
  // written is lost.
  [[gnu::format(printf, 2, 0)]] void Output(const char* format, va_list arguments,
                                            const char* /*moduleName*/) override {
    const std::string line = WholeLine(Format(format, arguments));
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
  }
};

// The trace client of a module looks up this symbol.
[[gnu::visibility("default")]] CTraceOutput Debug;
