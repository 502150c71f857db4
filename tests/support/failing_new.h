#pragma once

#include <cstdint>

// Makes the calling thread run out of memory: while the object lives, its `operator new` succeeds
// `successes` times, then throws std::bad_alloc, or calls `raise` to throw something else,
// `failures` times, then succeeds again. A program that uses this header gets the `operator new`
// that does so. There may be one object per thread at a time.
class FailingNew {
 public:
  using Raise = void (*)();

  explicit FailingNew(int64_t successes, int64_t failures = INT64_MAX, Raise raise = nullptr);
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;

  // Ends the failures.
  void Stop();
  // Whether a call has failed on this thread.
  bool HasFailed() const;
};
