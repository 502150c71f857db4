#pragma once

#include <cstdarg>

// The host's trace output: the object that the host process exports under the symbol name "Debug".
// Operations are called by their position in the virtual table, so their order is part of the
// binary interface; the placeholders keep the positions that the trace client does not use.
//
// The host owns the object. The client calls it from every thread that traces.
class ITraceSink {
 public:
  virtual void Placeholder0() = 0;
  virtual void Placeholder1() = 0;

  // False while the sink cannot take lines; the client then looks for another one.
  virtual bool IsValid() = 0;

  virtual void Placeholder3() = 0;
  virtual void Placeholder4() = 0;
  virtual void Placeholder5() = 0;
  virtual void Placeholder6() = 0;

  // A line without a level. `format` and `arguments` are those of the trace site, untouched;
  // `moduleName` is never null.
  virtual void PlainOutput(const char* format, va_list arguments, const char* moduleName) = 0;

  // A line that passed the level test; arguments as for PlainOutput.
  virtual void Output(const char* format, va_list arguments, const char* moduleName) = 0;

 protected:
  ~ITraceSink() = default;
};
