#include "host/guard_report.h"

#include <sstream>

#include "host/guard_place.h"
#include "host/program_output.h"

namespace {

using State = Protection::State;

State StateOf(const std::string& word) {
  if (word == "on") {
    return State::ON;
  }
  if (word == "unset") {
    return State::UNSET;
  }
  return word == "off" ? State::OFF : State::WRONG;
}

}  // namespace

std::vector<Protection> ReadGuardReport() {
  std::istringstream lines(ProgramOutput({GuardDirectory() + "/Talvor", "--check"}));
  std::vector<Protection> protections;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    Protection protection;
    std::string word;
    if (std::getline(fields, protection.name, '\t') && std::getline(fields, word, '\t') &&
        std::getline(fields, protection.text)) {
      protection.state = StateOf(word);
      protections.push_back(protection);
    }
  }
  return protections;
}
