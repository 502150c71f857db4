// make_table FILE...: reads what the benchmark programs wrote as JSON and prints the tables of
// docs/benchmarks.md. The contender "limit" of a row is what the task needs at least, all others
// but "ours" are peers.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "bench/results.h"

namespace {

constexpr char OURS[] = "ours";
constexpr char LIMIT[] = "limit";
constexpr char BEST_PEER[] = "the best peer";

// What is asked for: our time is at most so many times that of a contender of the same row.
struct Target {
  double factor = 0;  // 0: none
  const char* against = "";
};

struct Row {
  const char* id;
  const char* title;
  Target targets[2];
  const char* note = "";
};

constexpr Row ROWS[] = {
    {"trace_off", "a trace site while tracing is off, 3 arguments", {{1.1, LIMIT}}},
    {"trace_line", "a trace line of level 5 with a sink that drops it", {{1.0, BEST_PEER}}},
    {"module_load", "load and unload the module", {}, "the limit loads an empty library."},
    {"availability",
     "availability request through the exported interface, tracing off",
     {{1.2, "RapidJSON"}}},
    {"copy",
     "deep copy of a request record",
     {{0.8, BEST_PEER}},
     "RapidJSON's own copy shares constant strings with its source. Ours owns all of its bytes, in 2 "
     "allocations, with room for what an answer adds. It measures the record first, because the "
     "library crashes when memory runs out halfway."},
    {"event_set_wait", "event: set, then a wait that finds it set", {{1.05, LIMIT}}},
    {"event_wait_0", "event: wait 0 ms, not set", {{0.8, BEST_PEER}}},
    {"task_latency",
     "task: queued to begun, one in flight",
     {{1.1, BEST_PEER}},
     "ours copies the record, takes 2 locks to queue it and 1 to take it, wakes and yields. No peer "
     "copies or yields here."},
    {"task_throughput",
     "tasks: 100,000 through the queue, a copied record each",
     {{1.1, LIMIT}},
     "the limit is a plain queue that yields after each task, as ours does; no peer yields. A task "
     "takes 1 lock to queue and 2 to run, the second to tell whether its queue is empty."},
    {"registry_load_one_key",
     "registry: load 100,000 values in one key",
     {{0.8, "RapidJSON"}},
     "WinPR reads no strings from a file and needs time in proportion to the square of their number: "
     "it loads a tenth of them, as numbers, and once."},
    {"registry_load_1000_keys",
     "registry: load 100,000 values in 1,000 keys",
     {{0.8, "RapidJSON"}}},
    {"registry_load_million", "registry: load 1,000,000 values in 1,000 keys", {}},
    {"registry_query_one_key",
     "registry: query a string, 100,000 values in one key",
     {{0.8, "GKeyFile"}}},
    {"registry_query_1000_keys",
     "registry: query a string, 100,000 values in 1,000 keys",
     {{0.8, "GKeyFile"}}},
    {"registry_open_query_one_key",
     "registry: construct, open, query and destroy, 100,000 values in one key",
     {{1.5, "GKeyFile"}}},
    {"registry_open_query_1000_keys",
     "registry: construct, open, query and destroy, 100,000 values in 1,000 keys",
     {{1.5, "GKeyFile"}},
     "GKeyFile's query finds the group as well, without a lock or a path. Ours locks each of the 3 "
     "keys on the way, in 3 times 83 instructions, holds each one so that nobody frees it, and keeps "
     "its own copy of the path; it allocates nothing for a path of up to 15 characters. A key looks "
     "first at the subkey that it opened last, as here: another one takes a search."},
    {"registry_save",
     "registry: save 100,000 values, flushed",
     {{0.5, BEST_PEER}, {1.5, LIMIT}},
     "the files lie in memory, so that no disk is in the figures. The limit puts a flushed file with "
     "the same bytes in the place of the old one, in 5 system calls. Ours makes the bytes, in 49 "
     "instructions for a value, and writes them 64 KiB at a time. It also keeps other processes out "
     "and the old file as a backup, and flushes the directory: 16 system calls and the writes."},
    {"registry_save_million", "registry: save 1,000,000 values in 1,000 keys, flushed", {}},
    {"profile_read",
     "profile string: read the last key of 1,000 lines",
     {{0.05, BEST_PEER}},
     "the limit opens, reads and closes the file, in 4 system calls. Ours opens it anew for each "
     "call too, since nothing may be cached, and locks it, so that it reads no half update: 6 system "
     "calls, which take four fifths of its time, the two of the lock a seventh."},
    {"profile_write", "profile string: write a key into 1,000 lines", {{0.05, BEST_PEER}}},
    {"process_find",
     "find a process by name among 500",
     {{1.1, LIMIT}},
     "the limit lists the processes and reads one file of each. Listing takes 7 % of the time: a "
     "limit that knew the processes would lie that much lower."},
    {"directory_remove", "remove 20,000 files in 200 directories", {{1.0, BEST_PEER}}},
    {"launch_small", "launch and wait, small host", {{1.1, "posix_spawn"}}},
    {"launch_big", "the same, host with 1 GiB of touched memory", {{1.1, "posix_spawn"}}},
    {"launch_descriptors",
     "the same, small host with a high descriptor limit",
     {{1.1, "posix_spawn"}}},
};

struct GrowthRow {
  const char* id;
  const char* title;
  const char* size;
};

constexpr GrowthRow GROWTH_ROWS[] = {
    {"growth_availability", "availability request", "commands in the record"},
    {"growth_copy", "deep copy", "commands in the record"},
    {"growth_event", "event: set and wait", "other events"},
    {"growth_tasks", "tasks through the queue", "tasks"},
    {"growth_registry_load", "registry: load", "values"},
    {"growth_registry_query", "registry: query", "values"},
    {"growth_registry_open_query", "registry: construct, open, query and destroy",
     "keys of 100 values"},
    {"growth_registry_save", "registry: save", "values"},
    {"growth_profile_read", "profile string: read the last key", "lines"},
    {"growth_profile_write", "profile string: write a key", "lines"},
    {"growth_process_find", "find a process", "processes"},
    {"growth_directory_remove", "remove files", "files"},
    {"growth_launch", "launch and wait", "MiB of touched memory"},
    {"growth_launch_descriptors", "launch and wait", "descriptors allowed"},
};

struct MemoryRow {
  const char* id;
  const char* title;
  double asked;  // bytes at most
};

constexpr MemoryRow MEMORY_ROWS[] = {
    {"memory_registry_value", "a registry value, one of 100,000", 64},
    {"memory_queued_record", "the copy of a record, as it is queued", 1000},
};

std::string Shown(double nanoseconds) {
  const char* units[] = {"ns", "µs", "ms", "s"};
  int unit = 0;
  for (; nanoseconds >= 1000 && unit < 3; ++unit) {
    nanoseconds /= 1000;
  }
  char text[32];
  const int digits = nanoseconds < 1 ? 2 : nanoseconds < 10 ? 1 : 0;
  snprintf(text, sizeof text, "%.*f %s", digits, nanoseconds, units[unit]);
  return text;
}

std::string Ratio(const Figure& ours, const std::optional<Figure>& other) {
  char text[32] = "";
  if (other) {
    snprintf(text, sizeof text, "%.2f", ours.value / other->value);
  }
  return text;
}

std::optional<Figure> Find(const Contenders& contenders, const std::string& name) {
  const auto found = contenders.find(name);
  return found != contenders.end() ? std::optional(found->second) : std::nullopt;
}

// The peers with their names, the best first.
std::vector<std::pair<std::string, Figure>> PeersOf(const Contenders& contenders) {
  std::vector<std::pair<std::string, Figure>> peers;
  std::copy_if(contenders.begin(), contenders.end(), std::back_inserter(peers),
               [](const auto& peer) { return peer.first != OURS && peer.first != LIMIT; });
  std::sort(peers.begin(), peers.end(), [](const auto& left, const auto& right) {
    return left.second.value < right.second.value;
  });
  return peers;
}

std::optional<Figure> BestPeer(const Contenders& contenders) {
  const auto peers = PeersOf(contenders);
  return !peers.empty() ? std::optional(peers.front().second) : std::nullopt;
}

// The peers, each with its figure as `show` formats it, the best first.
template <typename Show>
std::string ShowPeers(const Contenders& contenders, const Show& show) {
  std::string text;
  for (const auto& [name, figure] : PeersOf(contenders)) {
    text += (text.empty() ? "" : ", ") + name + " " + show(figure.value);
  }
  return text;
}

// What is asked for and whether it holds. Two runs of the same thing differ by their noise: a
// verdict needs a ratio that lies further from what is asked for.
std::string Judge(const Target& target, const Figure& ours, const Contenders& contenders) {
  const bool isBest = target.against == std::string(BEST_PEER);
  const auto other = isBest ? BestPeer(contenders) : Find(contenders, target.against);
  char text[128];
  int length = snprintf(text, sizeof text, "%.2f of %s%s: ", target.factor,
                        target.against == std::string(LIMIT) ? "the " : "", target.against);
  const size_t rest = sizeof text - static_cast<size_t>(length);
  if (!other) {
    snprintf(text + length, rest, "not measured");
    return text;
  }
  const double share = ours.value / other->value / target.factor;
  const double noise = std::hypot(ours.noise, other->noise);
  if (std::abs(share - 1) < noise) {
    snprintf(text + length, rest, "within the noise of %.0f %%", 100 * noise);
  } else {
    snprintf(text + length, rest, share <= 1 ? "met" : "**missed**");
  }
  return text;
}

void PrintRow(const Row& row, const Results& results, std::string& notes) {
  const auto found = results.times.find(row.id);
  const auto ours = found != results.times.end() ? Find(found->second, OURS) : std::nullopt;
  if (!ours) {
    printf("| %s | not measured | | | | | |\n", row.title);
    return;
  }
  const Contenders& contenders = found->second;
  std::string verdicts;
  for (const Target& target : row.targets) {
    if (target.factor > 0) {
      verdicts += (verdicts.empty() ? "" : "; ") + Judge(target, *ours, contenders);
    }
  }
  const auto limit = Find(contenders, LIMIT);
  printf("| %s | %s | %s | %s | %s | %s | %s |\n", row.title, Shown(ours->value).c_str(),
         ShowPeers(contenders, Shown).c_str(), Ratio(*ours, BestPeer(contenders)).c_str(),
         limit ? Shown(limit->value).c_str() : "", Ratio(*ours, limit).c_str(), verdicts.c_str());
  if (*row.note != '\0') {
    notes += std::string("- ") + row.title + ": " + row.note + "\n";
  }
}

void PrintRows(const Results& results) {
  std::string notes;
  printf("## Beside what others offer\n\n");
  printf("| Service | Ours | Peers | To the best peer | Limit | To the limit | Asked for |\n");
  printf("| --- | --- | --- | --- | --- | --- | --- |\n");
  for (const Row& row : ROWS) {
    PrintRow(row, results, notes);
  }
  printf("\n%s", notes.c_str());
  if (results.descriptorLimit > 0) {
    printf(
        "- launch and wait: the high descriptor limit was %.0f, the highest that could be set.\n",
        results.descriptorLimit);
  }
  printf("\n");
}

void PrintGrowth(const Results& results) {
  printf("## Growth\n\nAn exponent of 0 means no growth, 1 growth in proportion to the size.\n\n");
  printf("| Service | Size | Times | Exponent |\n| --- | --- | --- | --- |\n");
  for (const GrowthRow& row : GROWTH_ROWS) {
    const auto found = results.growth.find(row.id);
    if (found == results.growth.end() || found->second.size() < 2) {
      continue;
    }
    std::string times;
    for (const auto& [size, time] : found->second) {
      char text[64];
      snprintf(text, sizeof text, "%s%.0f: %s", times.empty() ? "" : ", ", size,
               Shown(time).c_str());
      times += text;
    }
    const auto [firstSize, firstTime] = *found->second.begin();
    const auto [lastSize, lastTime] = *found->second.rbegin();
    printf("| %s | %s | %s | %.2f |\n", row.title, row.size, times.c_str(),
           std::log(lastTime / firstTime) / std::log(lastSize / firstSize));
  }
  printf("\n");
}

void PrintMemory(const Results& results) {
  const auto show = [](double bytes) { return std::to_string(std::lround(bytes)); };
  printf("## Memory\n\nIn bytes, with what the allocator adds.\n\n");
  printf("| What | Ours | Peers | Asked for |\n| --- | --- | --- | --- |\n");
  for (const MemoryRow& row : MEMORY_ROWS) {
    const auto found = results.bytes.find(row.id);
    const auto ours = found != results.bytes.end() ? Find(found->second, OURS) : std::nullopt;
    if (!ours) {
      continue;
    }
    const char* verdict = ours->value <= row.asked ? "met" : "**missed**";
    printf("| %s | %s | %s | %s |\n", row.title, show(ours->value).c_str(),
           ShowPeers(found->second, show).c_str(), (show(row.asked) + ": " + verdict).c_str());
  }
}

}  // namespace

int main(int count, char** arguments) {
  Results results;
  for (int index = 1; index < count; ++index) {
    if (!ReadResults(arguments[index], results)) {
      fprintf(stderr, "make_table: %s does not hold the results of a benchmark program\n",
              arguments[index]);
      return 1;
    }
  }
  PrintRows(results);
  PrintGrowth(results);
  PrintMemory(results);
  return 0;
}
