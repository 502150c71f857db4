#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// One line as the host's sink received it.
struct TraceLine {
  std::string format;
  std::string text;  // formatted
  std::string moduleName;
  std::thread::id thread;  // the one that wrote it
};

// Switches tracing on at a level for the life of the object and collects the lines of all threads.
// This header's source file exports the sink object "Debug" from the test program. There may be one
// object at a time.
class TraceSession {
 public:
  explicit TraceSession(uint32_t level, const char* moduleName = "EM_TALVOR");
  ~TraceSession();
  TraceSession(const TraceSession&) = delete;
  TraceSession& operator=(const TraceSession&) = delete;

  std::vector<TraceLine> Lines() const;
  std::vector<std::string> Texts() const;
  std::vector<std::string> Formats() const;
  void Clear();

  // The number of lines with that format.
  int Count(const std::string& format) const;

  // Waits until there are `count` lines with that format. False after ten seconds.
  bool WaitFor(const std::string& format, int count = 1) const;

  // Makes the sink throw std::runtime_error instead of taking a line with that format.
  void ThrowAt(const std::string& format);
  // Calls `action` on the tracing thread before a line with that format is taken.
  void CallAt(const std::string& format, std::function<void()> action);
  // Calls `action` with the format on the tracing thread before any line is taken, and before the
  // action for the format.
  void CallAtEachLine(std::function<void(const std::string& format)> action);
};

// The lowest level, 1 to 5, at which `action` writes a line with that format; 0 when it never does,
// or even while tracing is off. Runs the action with tracing off and once for each level that it
// needs. Not inside a TraceSession.
uint32_t LevelOf(const std::string& format, const std::function<void()>& action);

// Waits until `condition` holds. False after ten seconds.
bool WaitUntil(const std::function<bool()>& condition);
