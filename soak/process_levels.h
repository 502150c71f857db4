#pragma once

#include <cstddef>
#include <string>
#include <vector>

// What this process holds: a soak leaves it level.
struct ProcessLevels {
  size_t bytes;       // allocated
  size_t residentKb;  // kilobytes of memory in use
  size_t threads;
  size_t descriptors;
  size_t children;  // 1 when there is any, running or ended
  size_t files;     // in the directories of the soak and of the registry
};

// `directory` is the soak's.
ProcessLevels MeasureProcess(const std::string& directory);

// What has risen from `before` to `after`, a sentence each.
std::vector<std::string> CompareLevels(const ProcessLevels& before, const ProcessLevels& after);

// One line.
std::string Describe(const ProcessLevels& levels);
