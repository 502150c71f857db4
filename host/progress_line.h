#pragma once

#include <string>

// A line that changes on a terminal while something is waited for.
class CProgressLine {
 public:
  enum class Kind {
    STORY,   // on standard output; elsewhere than on a terminal each state gets a line of its own
    PASSING  // on standard error, on a terminal only, and gone at the end
  };
  explicit CProgressLine(Kind kind);

  // Shows the state. Throws CHostError when it cannot be written.
  void Show(const std::string& state);
  // Begins a new line, after the last state of a story.
  void End();

 private:
  const Kind m_eKind;
  const bool m_bTerminal;
  bool m_bOpen = false;  // a state stands on the line
};
