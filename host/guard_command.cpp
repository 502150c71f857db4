#include <sysexits.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/guard_place.h"
#include "host/guard_report.h"
#include "host/output.h"

namespace {

constexpr size_t NAME_WIDTH = 10;

const char* Mark(Protection::State state) {
  switch (state) {
    case Protection::State::ON:
      return "on     ";
    case Protection::State::OFF:
      return "OFF    ";
    case Protection::State::UNSET:
      return "unset  ";
    default:
      return "WRONG  ";
  }
}

int ShowGuard() {
  const GuardPlace place = FindGuardPlace();
  WriteLine(place.isOn ? "The guard is on, before the collector in " + place.collector + "."
                       : "The guard is off: the module starts the collector in " + place.fileRoot +
                             " itself.");
  if (!place.isOn) {
    return EX_UNAVAILABLE;
  }
  for (const Protection& protection : ReadGuardReport()) {
    std::string name = protection.name;
    name.resize(std::max(NAME_WIDTH, name.size() + 1), ' ');
    WriteLine(Mark(protection.state) + name + protection.text);
  }
  return EXIT_SUCCESS;
}

}  // namespace

int RunGuardAction(const HostOptions& options) {
  if (options.action == "status") {
    return ShowGuard();
  }
  for (const std::string& sentence : options.action == "on" ? PutGuard() : TakeGuardAway()) {
    WriteLine(sentence);
  }
  return EXIT_SUCCESS;
}
