#pragma once

#include <map>
#include <string>

// What a contender needed: the median of its runs.
struct Figure {
  double value = 0;  // nanoseconds or bytes
  double noise = 0;  // the runs' standard deviation, as a share of their mean; 0: only one run
};

using Contenders = std::map<std::string, Figure>;

// What the benchmark programs wrote, by row and contender. A benchmark is called ROW/CONTENDER or,
// for the growth of our own, ROW/ours/SIZE.
struct Results {
  std::map<std::string, Contenders> times;
  std::map<std::string, Contenders> bytes;
  std::map<std::string, std::map<double, double>> growth;  // nanoseconds by size
  double descriptorLimit = 0;                              // of launch_descriptors
};

// Adds what the file holds. False when it does not hold the results of a benchmark program.
bool ReadResults(const char* path, Results& results);
