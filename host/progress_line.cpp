#include "host/progress_line.h"

#include <unistd.h>

#include <iostream>

#include "host/output.h"

namespace {

constexpr char BEGIN_OF_LINE[] = "\r";
constexpr char CLEAR_REST[] = "\x1b[K";

}  // namespace

CProgressLine::CProgressLine() : m_bTerminal(isatty(STDOUT_FILENO) == 1) {}

void CProgressLine::Show(const std::string& state) {
  if (!m_bTerminal) {
    WriteLine(state);
    return;
  }
  std::cout << BEGIN_OF_LINE << state << CLEAR_REST << std::flush;
  m_bOpen = true;
}

void CProgressLine::End() {
  if (m_bOpen) {
    WriteLine("");
    m_bOpen = false;
  }
}
