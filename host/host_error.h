#pragma once

#include <sysexits.h>

#include <stdexcept>
#include <string>

// The exit code of a program that a signal ended, less the signal's number.
constexpr int SIGNAL_CODE = 128;

// Why em_host cannot go on: a sentence for the user that says what to do, and the exit code.
//
// Exit codes up to 63 are statuses of requests. What em_host itself fails at has the codes of
// <sysexits.h>, from 64:
//   EX_USAGE        the command line is wrong
//   EX_DATAERR      a file with a record holds none
//   EX_NOINPUT      a file with a record cannot be read
//   EX_UNAVAILABLE  an archive could not be created on this machine now
//   EX_SOFTWARE     the module does not behave as a module
//   EX_OSERR        the system refuses something
//   EX_OSFILE       the module, or a file of this installation, is missing
//   EX_CANTCREAT    something cannot be written
//   EX_IOERR        the output cannot be written
//   EX_TEMPFAIL     a final answer did not come in time
//   EX_NOPERM       rights are missing
//   EX_CONFIG       an archive could be created, but something on this machine should be repaired
class CHostError : public std::runtime_error {
 public:
  CHostError(int exitCode, const std::string& sentence)
      : std::runtime_error(sentence), m_nExitCode(exitCode) {}

  int GetExitCode() const { return m_nExitCode; }

 private:
  int m_nExitCode;
};
