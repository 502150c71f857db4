#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

constexpr char HISTORY_FILE[] = "/var/lib/em-talvor/history.jsonl";

// A run of the collector under the guard, a line of its history. What is not known is absent.
struct CollectorRun {
  std::string line;                // as it stands in the history
  std::string start;               // UTC, 2026-11-22T03:10:29.123Z
  std::optional<double> duration;  // seconds
  std::optional<int64_t> size;     // of the archive, bytes
  std::optional<int> exitStatus;
  std::optional<int> signal;      // that ended the collector
  std::string ended;              // what ended the run, a word: "done", "time", ...
  std::optional<int64_t> memory;  // peak, bytes
};

// The runs, the newest last; none when there is no history. Invalid lines are skipped. Throws
// CHostError when the history cannot be read.
std::vector<CollectorRun> ReadRunHistory();

// What ended the run, in words.
std::string ExplainRunEnd(const CollectorRun& run);
