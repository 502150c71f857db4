#pragma once

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

// What a child process executes. The constructor prepares all that Execute() needs, which runs in
// the child.
class CChildProgram {
 public:
  // `words` are the program, looked up through PATH unless it contains a "/", and its arguments.
  // No words at all make a program that cannot be executed. Unless `keepDescriptors` is set, the
  // child closes all its descriptors but the first three.
  CChildProgram(std::vector<std::string> words, bool keepDescriptors);
  CChildProgram(const CChildProgram&) = delete;
  CChildProgram& operator=(const CChildProgram&) = delete;

  // The child's side, after fork(). Only makes calls that are safe there in a process with threads,
  // on data of this object that it does not change. A program that cannot be executed ends the
  // child with exit status 255, without the host's exit handlers.
  [[noreturn]] void Execute() const noexcept;

 private:
  std::vector<std::string> m_oWords;
  std::vector<char*> m_oArguments;  // into m_oWords, with a null at the end
  const char* m_pProgram;
  const bool m_bKeepDescriptors;
  const uint32_t m_nDescriptorLimit;
  sigset_t m_oUnblocked;
};

// Splits at white space. Knows no quotes and no escapes.
std::vector<std::string> SplitIntoWords(const char* commandLine);
