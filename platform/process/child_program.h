#pragma once

#include <sys/types.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

// What a child process executes. The constructor prepares all that the child needs.
class CChildProgram {
 public:
  // `words` are the program, looked up through PATH unless it contains a "/", and its arguments.
  // Without words the program cannot be executed. Unless `keepDescriptors` is set, the child closes
  // all its descriptors but the first three.
  CChildProgram(std::vector<std::string> words, bool keepDescriptors);
  CChildProgram(const CChildProgram&) = delete;
  CChildProgram& operator=(const CChildProgram&) = delete;

  // Creates a child process that executes the program, and returns its process id, or -1 when none
  // can be created. The caller waits for the child. A program that cannot be executed ends the
  // child with exit status 255, without the host's exit handlers.
  //
  // `pid` receives the result too, and before the program is executed, which may take long: for
  // instance while a scanner checks the program or a file system does not answer. Another thread
  // may kill the child meanwhile. (A child in a PID namespace of its own does not know its id
  // outside; there, and where memory cannot be shared, `pid` receives it from the calling thread.)
  //
  // The cost does not grow with the memory of the process: the child borrows it instead of copying
  // it, and only the calling thread is suspended until the program begins. No signal handler of the
  // host runs in the child.
  pid_t Start(std::atomic<int32_t>& pid) const noexcept;

 private:
  [[noreturn]] void Execute(const sigset_t& blocked, std::atomic<int32_t>& pid) const noexcept;

  std::vector<std::string> m_oWords;
  std::vector<char*> m_oArguments;  // into m_oWords, with a null at the end
  const char* m_pProgram;
  const bool m_bKeepDescriptors;
  const uint32_t m_nDescriptorLimit;
};

// Splits at white space. Knows no quotes and no escapes.
std::vector<std::string> SplitIntoWords(const char* commandLine);

// The process's descriptor limit, which descriptors are below; 1024 when it is below 256 or
// unknown.
uint32_t GetDescriptorLimit();

// Closes all descriptors from `first` up, also those above the process's limit, which were opened
// before it was lowered. On old kernels without a proc file system it closes those below `limit`,
// one by one; elsewhere `limit` does not matter. Safe between fork() or vfork() and exec().
void CloseDescriptors(uint32_t first, uint32_t limit) noexcept;
