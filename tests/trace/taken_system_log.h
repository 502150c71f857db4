#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "tests/support/system_calls.h"

// Takes what the program writes to the system log, for the life of the object.
class TakenSystemLog {
 public:
  struct Opening {
    std::string name;
    int options;
    int facility;
    bool operator==(const Opening&) const = default;
  };
  struct Entry {
    int priority;
    std::string text;
    bool operator==(const Entry&) const = default;
  };

  std::vector<Opening> openings;
  std::vector<Entry> entries;

 private:
  std::mutex m_oLock;
  const ScopedAnswer m_oOpenings =
      calls::openlog.Answer([this](const char* name, int options, int facility) {
        const std::lock_guard guard(m_oLock);
        openings.push_back({name, options, facility});
        errno = EPIPE;
      });
  const ScopedAnswer m_oEntries = calls::syslog.Answer([this](int priority, const char* entry) {
    const std::lock_guard guard(m_oLock);
    entries.push_back({priority, entry});
    errno = EPIPE;
  });
};
