#pragma once

#include <stdexcept>
#include <string>

// The exit codes, as scripts know them from tools that search.
enum ExitCode {
  EXIT_DONE = 0,
  EXIT_NOT_THERE = 1,  // the key, value or pointer that was asked for does not exist
  EXIT_FAILED = 2,     // a wrong command line, data that are refused, missing rights
};

// Ends a command: one or more sentences for the user, and the exit code.
class CFailure : public std::runtime_error {
 public:
  CFailure(ExitCode code, const std::string& sentences)
      : std::runtime_error(sentences), m_eCode(code) {}

  ExitCode GetCode() const { return m_eCode; }

 private:
  ExitCode m_eCode;
};
