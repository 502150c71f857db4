#pragma once

#include <string>
#include <vector>

// What a look at one part of the machine found: one line of "em_host doctor".
struct Finding {
  enum class Verdict {
    RIGHT,
    WARNING,  // an archive can be created all the same, but something should be repaired
    WRONG,    // no archive can be created
    UNKNOWN   // it depends on something that is wrong
  };
  Verdict verdict;
  std::string subject;
  std::string text;  // a sentence; what to do when it is not right
};

using Findings = std::vector<Finding>;
