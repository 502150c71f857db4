#include "host/progress_line.h"

#include <unistd.h>

#include <iostream>

#include "host/output.h"

namespace {

constexpr char BEGIN_OF_LINE[] = "\r";
constexpr char CLEAR_REST[] = "\x1b[K";

}  // namespace

CProgressLine::CProgressLine(Kind kind)
    : m_eKind(kind),
      m_bTerminal(isatty(kind == Kind::STORY ? STDOUT_FILENO : STDERR_FILENO) == 1) {}

void CProgressLine::Show(const std::string& state) {
  if (m_eKind == Kind::STORY && !m_bTerminal) {
    WriteLine(state);
  } else if (m_eKind == Kind::STORY) {
    std::cout << BEGIN_OF_LINE << state << CLEAR_REST << std::flush;
    m_bOpen = true;
  } else if (m_bTerminal) {
    // What others write meanwhile begins at the left and takes the place of the state.
    std::cerr << state << CLEAR_REST << BEGIN_OF_LINE << std::flush;
    m_bOpen = true;
  }
}

void CProgressLine::End() {
  if (m_bOpen && m_eKind == Kind::STORY) {
    WriteLine("");
  } else if (m_bOpen) {
    std::cerr << CLEAR_REST << std::flush;
  }
  m_bOpen = false;
}
