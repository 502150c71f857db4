#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "base/descriptor.h"

// Child processes: starting one, waiting for it, ending it by force. Processes are named by their
// id alone; -1 means none.
//
// Failures are results and nothing is logged. An exit code is the exit status, 0 to 255, of a child
// that ended normally and -1 in every other case.
//
// Thread safety: every operation may be called from any thread. Two waits for one child race for
// it: one gets its exit status, the other false and -1. In a host that ignores SIGCHLD both get
// false and -1, once the child has ended.

// Runs the program named by the first word of `commandLine`, looked up through PATH, with the other
// words as its arguments. White space separates words; no quoting and no escaping is recognised.
//
// `pid` receives the child's id before the child executes the program, so that another thread can
// kill it while this one waits for the execution or for the end, or -1 when there is none. It keeps
// the id after the child has ended.
// `exitCode` is -1 unless the child was waited for and ended normally.
// `workingDirectory`, unless null or empty, is where the child starts. The calling process itself
// is there, with all its threads, until this operation returns: launches with a working directory
// wait for each other, for the whole life of a child that is waited for. A launch without one does
// not wait; its child starts wherever the process is at that moment, which may be the working
// directory of another launch.
//
// `reserved` is passed as false and not looked at. `detach`: does not wait. The caller then waits
// with WaitProcess(), or the child stays in the process table after its end. `keepDescriptors`: the
// child inherits the descriptors above 2 that are not close-on-exec.
//
// Returns true when the child ended normally with exit status 0; with `detach`, when it was
// created. A program that cannot be executed, and an empty command line, give a child that ends
// with exit status 255. False, without a child, when it cannot be created or the working directory
// cannot be entered; false also when the process could not change back to its old directory
// afterwards.
bool LaunchProcess(const char* commandLine, std::atomic<int32_t>& pid, int32_t& exitCode,
                   const char* workingDirectory, bool reserved, bool detach, bool keepDescriptors);

// Forms of LaunchProcess(). Run... waits for the child, Start... does not.
bool RunProcess(const char* commandLine, const char* workingDirectory, bool reserved,
                bool keepDescriptors);
bool RunProcess(const char* commandLine, std::atomic<int32_t>& pid, int32_t& exitCode,
                const char* workingDirectory, bool reserved, bool keepDescriptors);
bool StartProcess(const char* commandLine, const char* workingDirectory, bool reserved,
                  bool keepDescriptors);
bool StartProcess(const char* commandLine, std::atomic<int32_t>& pid, const char* workingDirectory,
                  bool reserved, bool keepDescriptors);

// As the second form of RunProcess(), with the whole of `program` as one word and no arguments: its
// path may contain blanks.
bool RunProgram(const char* program, std::atomic<int32_t>& pid, int32_t& exitCode,
                const char* workingDirectory, bool reserved, bool keepDescriptors);

// Waits until the child has ended. The time-out is deliberately not used and the wait has no limit:
// a child that was killed is certain to be gone afterwards. True when the child ended normally with
// exit status 0. False and -1, with errno ECHILD, for a process that is no child, and for a pid
// below 1.
bool WaitProcess(int32_t pid, int32_t& exitCode, uint32_t timeoutMilliseconds);

// Waits, for `milliseconds` at most, until the child has ended, and leaves it for WaitProcess(),
// which then does not block. False for a child that still runs, and at once for a process that is
// no child (any more) and for a pid below 1.
bool WaitForProcessEnd(int32_t pid, uint32_t milliseconds);

// Sends SIGKILL, deliberately also without `force`. False, with errno set, when that failed: ESRCH
// for a process that is gone, and for a pid below 1, which would name a process group or all
// processes.
bool KillProcess(int32_t pid, bool force);

// Stores the current directory of the process. False, and `path` untouched, when it has none any
// more or its path is longer than 4095 characters.
bool GetCurrentDirectory(std::string& path);

// Changes the current directory of the process. False when that failed or `path` is empty.
bool SetCurrentDirectory(const std::string& path);

// Changes the current directory of the whole process for a while. Remembers the old directory by a
// descriptor, so that it is found again after it was renamed or removed.
//
// Thread safety: one thread at a time uses an object, and one object at a time has entered a
// directory; the others wait, so that each one comes back to where the process was before. The
// other threads of the process see the change.
class CWorkingDirectory {
 public:
  CWorkingDirectory() = default;
  // Leaves, when Leave() was not called.
  ~CWorkingDirectory() { Leave(); }
  CWorkingDirectory(const CWorkingDirectory&) = delete;
  CWorkingDirectory& operator=(const CWorkingDirectory&) = delete;

  // Changes to `path`; null or empty keeps the directory. False, and nothing changed, when the
  // directory cannot be entered or the old one cannot be remembered. Waits while another object has
  // entered one; so the calling thread must have none entered.
  bool Enter(const char* path);

  // Changes back, once. False when that failed: the process is still in the entered directory.
  bool Leave();

 private:
  std::unique_lock<std::mutex> m_oTurn;  // held while a directory is entered
  std::unique_ptr<CDescriptor> m_pOld;   // null while none is entered
};
