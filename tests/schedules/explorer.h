#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The scenarios of the program, and their runs.

struct ScenarioEntry {
  std::string name;
  void (*run)();
};

// Every scenario, as registered.
std::vector<ScenarioEntry>& AllScenarios();

// Runs every schedule of the scenario with at most `bound` preemptions in this process, which ends
// with a report at the first one that fails. Returns how many there were.
int64_t Explore(const ScenarioEntry& scenario, int bound);

// Runs one schedule and tells what it does. Throws std::invalid_argument when it is none.
void Replay(const ScenarioEntry& scenario, const std::string& schedule);
