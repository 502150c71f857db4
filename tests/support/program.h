#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/scratch_directory.h"

// A program that a test runs. Its standard input is empty; its output is collected.
class Program {
 public:
  // Starts it: the path of the executable and its arguments.
  explicit Program(std::vector<std::string> command);
  // Kills it if it is still running.
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t GetPid() const { return m_nPid; }
  void Signal(int signal) const;
  // Waits for its end. The exit code, or 128 and the number of the signal that ended it.
  int Wait();

  std::string Output() const { return m_oFiles.Read("output"); }
  std::string Errors() const { return m_oFiles.Read("errors"); }

 private:
  ScratchDirectory m_oFiles;
  pid_t m_nPid = 0;
  int m_nExitCode = 0;
};
