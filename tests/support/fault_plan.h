#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

// What becomes of a system call.
enum class Outcome {
  DONE,            // the call is made
  FAILED,          // it fails and does nothing
  DONE_AND_FAILED  // it is made, and fails nevertheless, as on network file systems
};

// While it lives, decides what becomes of the file system calls that the program makes. For
// programs that wrap open, close, write, fchmod, fsync, stat, fstat, rename, renameat2 and unlink.
// One at a time, on the thread that made it.
class FaultPlan {
 public:
  using Decide = std::function<Outcome(size_t index, const std::string& name)>;

  // What fails, fails with `error`. `decide` is asked before each call, from index 0.
  FaultPlan(int error, Decide decide);
  ~FaultPlan();
  FaultPlan(const FaultPlan&) = delete;
  FaultPlan& operator=(const FaultPlan&) = delete;

  // Each write takes one byte only.
  void WriteByteByByte() { m_bByteByByte = true; }

  // The calls so far, by name.
  const std::vector<std::string>& GetCalls() const { return m_calls; }

  // For the wrappers. False, with errno, when the call shall look as if it failed; `isMade` tells
  // whether it is to be made.
  bool Enter(const char* name, bool& isMade);
  size_t GetWriteLength(size_t length) const;

 private:
  const Decide m_decide;
  const int m_nError;
  bool m_bByteByByte = false;
  std::vector<std::string> m_calls;
};

// From now on no two files can be exchanged, for that reason (0: they can). Needs no plan.
void RefuseExchange(int error);
