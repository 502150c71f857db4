#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// Sits between the loaded module and the system: makes chosen calls of the module fail, on any of
// its threads, and leaves the rest of the program alone. It replaces addresses in the module's
// table of imported functions. There may be one object at a time.
class CallFaults {
 public:
  // `library` is the module's handle. It must stay loaded for the life of the object.
  explicit CallFaults(void* library);
  ~CallFaults();
  CallFaults(const CallFaults&) = delete;
  CallFaults& operator=(const CallFaults&) = delete;

  // The symbols of the functions that can be made to fail, and those of them that the module
  // imports.
  static std::vector<std::string> AllNames();
  std::vector<std::string> ImportedNames() const;

  // Makes the calls of a function fail from number `first` (0: the next one) on, `count` of them,
  // as the function fails when the system refuses, or with that `error`.
  void Fail(const std::string& name, int64_t first, int64_t count = INT64_MAX, int error = 0);

  // Runs `action` before each call of the function, on the thread that calls.
  void CallAt(const std::string& name, std::function<void()> action);

  // Ends the failures and the actions. True when a call has failed since the last time.
  bool Stop();
};
