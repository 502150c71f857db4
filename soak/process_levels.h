#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The resources that this process holds. They must not grow during a soak.
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

// What has grown from `before` to `after`, one sentence each.
std::vector<std::string> CompareLevels(const ProcessLevels& before, const ProcessLevels& after);

// One line.
std::string Describe(const ProcessLevels& levels);
