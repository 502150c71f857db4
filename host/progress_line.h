#pragma once

#include <string>

// A line on standard output that changes while something is waited for: on a terminal it is written
// over, elsewhere each state gets a line of its own.
class CProgressLine {
 public:
  CProgressLine();

  // Shows the state. Throws CHostError when it cannot be written.
  void Show(const std::string& state);
  // Leaves the last state where it stands; the next line starts below.
  void End();

 private:
  const bool m_bTerminal;
  bool m_bOpen = false;  // the cursor stands after a state
};
