#pragma once

#include <cstdarg>

#include "trace/trace_sink.h"

// A trace sink that accepts every line and does nothing; a test overrides what it needs.
// Initialised at compile time.
class DefaultSink : public ITraceSink {
 public:
  constexpr DefaultSink() = default;

  void Placeholder0() override {}
  void Placeholder1() override {}
  bool IsValid() override { return true; }
  void Placeholder3() override {}
  void Placeholder4() override {}
  void Placeholder5() override {}
  void Placeholder6() override {}
  void PlainOutput(const char* format, va_list arguments, const char* moduleName) override {
    Output(format, arguments, moduleName);
  }
  void Output(const char* /*format*/, va_list /*arguments*/, const char* /*name*/) override {}
};
