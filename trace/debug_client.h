#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include "trace/debug_trace_config.h"
#include "trace/trace_shield.h"
#include "trace/trace_sink.h"

// The module's one way to write diagnostic lines. Accepted lines go to the trace sink that the host
// exports; without a sink they are lost, except that lines of level 0 also go to the system log.
//
// Levels: 0 also to the system log, 1 errors, warnings and milestones, 2 main events and request
// lines, 3 detail, 4 call tracing and fine detail, 5 entry and exit marks.
//
// Thread safety: every operation may be called from any thread, at any time of the process's life.
// All of them keep errno. What the sink throws passes through to the caller unless a CTraceShield
// is up.
class CDebugClient : public CDebugTraceConfig {
 public:
  constexpr CDebugClient() = default;

  // Writes a line unless `level` is above the debug level. Trace sites use DEBUG_TRACE instead,
  // which spares the formatting when tracing is off.
  void Trace(uint32_t level, const char* format, ...) __attribute__((format(printf, 3, 4)));

  // False when Trace() would drop a line of that level; for callers that would spend much on making
  // the line. Rereads changed settings as Trace() does.
  bool Accepts(uint32_t level);

  // Write a line whatever the level. The first argument of the second form is ignored.
  void Print(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void PrintFor(uintptr_t ignored, const char* format, ...) __attribute__((format(printf, 3, 4)));

 private:
  void WriteLeveled(uint32_t level, const char* format, va_list arguments)
      __attribute__((format(printf, 3, 0)));
  void WritePlain(const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));
  ITraceSink* FindSink();

  std::atomic<ITraceSink*> m_pSink = nullptr;  // the host's; null until found
};

extern constinit CDebugClient g_oDebugClient;

// Writes a trace line. Evaluates and formats nothing while tracing is off.
#define DEBUG_TRACE(level, ...)                    \
  do {                                             \
    if (g_oDebugClient.IsEnabled()) [[unlikely]] { \
      g_oDebugClient.Trace((level), __VA_ARGS__);  \
    }                                              \
  } while (false)

// As DEBUG_TRACE, where the caller cannot take an exception of the sink.
#define DEBUG_TRACE_NOTHROW(level, ...)            \
  do {                                             \
    if (g_oDebugClient.IsEnabled()) [[unlikely]] { \
      const CTraceShield traceShield;              \
      g_oDebugClient.Trace((level), __VA_ARGS__);  \
    }                                              \
  } while (false)
