// make_table FILE...: reads what the benchmark programs wrote as JSON and prints the tables of
// docs/benchmarks.md.
//
// The benchmarks are called ROW/CONTENDER or, for the growth of our own, ROW/ours/SIZE. The
// contender "limit" is what the task needs at least, all others but "ours" are peers.

#include <rapidjson/document.h>
#include <rapidjson/istreamwrapper.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr char OURS_NAME[] = "ours";
constexpr char LIMIT_NAME[] = "limit";

// What our time is compared with.
enum class Against { NANOSECONDS, NANOSECONDS_OR_RATIO, LIMIT, BEST_PEER, SMALL_HOST };

struct Row {
  const char* id;
  const char* title;
  Against against;
  double allowed;  // nanoseconds, or a factor
  const char* target;
  const char* note = "";
  double ratio = 0;  // of NANOSECONDS_OR_RATIO: to the limit, or to the best peer where none is
};

// What "as fast as" allows: two runs of the same thing differ by that on a busy machine.
constexpr double AS = 1.25;

constexpr Row ROWS[] = {
    {"trace_off", "a trace site while tracing is off, 3 arguments", Against::LIMIT, AS,
     "as fast as a plain guard"},
    {"availability", "availability request through the exported interface, tracing off",
     Against::NANOSECONDS, 250, "250 ns"},
    {"copy", "deep copy of a request record", Against::NANOSECONDS_OR_RATIO, 150,
     "150 ns, or 1.18 times the best peer",
     "RapidJSON's own copy shares constant texts with its source.", 150.0 / 127},
    {"event_set_wait", "event: set, then a wait that finds it set", Against::LIMIT, AS,
     "as fast as the limit, pthread and one yield"},
    {"event_wait_0", "event: wait 0 ms, not set", Against::NANOSECONDS, 100, "100 ns"},
    {"task_latency", "task: queued to begun, one in flight", Against::BEST_PEER, AS,
     "as fast as the best peer",
     "the worker is woken under the two locks that it takes next, as a plain queue that notifies "
     "under its lock does. Boost.Asio frees its lock first."},
    {"task_throughput", "tasks: 100,000 through the queue, a copied record each",
     Against::NANOSECONDS, 110e6, "110 ms",
     "a yield follows each task, which takes 100,000 times the limit of an event, and other processes "
     "of a busy machine run in it; no peer yields. Queuing a task takes two locks and running it "
     "three, where a peer takes one."},
    {"registry_load_one_key", "registry: load 100,000 values in one key", Against::NANOSECONDS, 8e6,
     "8 ms", "WinPR reads no texts from a file, so it has as many numbers."},
    {"registry_load_1000_keys", "registry: load 100,000 values in 1,000 keys", Against::NANOSECONDS,
     8e6, "8 ms"},
    {"registry_query_one_key", "registry: query a text, 100,000 values in one key",
     Against::NANOSECONDS, 150, "150 ns"},
    {"registry_query_1000_keys", "registry: query a text, 100,000 values in 1,000 keys",
     Against::NANOSECONDS, 150, "150 ns"},
    {"registry_open_query_one_key",
     "registry: construct, open, query and destroy, 100,000 values in one key",
     Against::NANOSECONDS, 1000, "1 µs"},
    {"registry_open_query_1000_keys",
     "registry: construct, open, query and destroy, 100,000 values in 1,000 keys",
     Against::NANOSECONDS, 1000, "1 µs"},
    {"registry_save", "registry: save 100,000 values, flushed", Against::NANOSECONDS, 8e6, "8 ms",
     "the files lie in memory, so that no disk is in the figures."},
    {"profile_read", "profile string: read the last key of 1,000 lines", Against::NANOSECONDS, 15e3,
     "15 µs"},
    {"profile_write", "profile string: write a key into 1,000 lines", Against::NANOSECONDS, 30e3,
     "30 µs"},
    {"process_find", "find a process by name among 500", Against::NANOSECONDS_OR_RATIO, 0.95e6,
     "0.95 ms, or 1.19 times the limit", "the limit knows the processes, ours lists them first.",
     0.95 / 0.8},
    {"directory_remove", "remove 20,000 files in 200 directories", Against::NANOSECONDS_OR_RATIO,
     70e6, "70 ms, or 1.30 times the limit", "", 70.0 / 54},
    {"launch_small", "launch and wait, small host", Against::NANOSECONDS_OR_RATIO, 0.9e6,
     "0.9 ms, or 1.36 times the limit", "", 0.9 / 0.66},
    {"launch_big", "the same, host with 1 GiB of touched memory", Against::SMALL_HOST, AS,
     "as fast as in a small host"},
    {"launch_descriptors", "the same, small host with a high descriptor limit", Against::SMALL_HOST,
     AS, "as fast as in a small host"},
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
};

constexpr MemoryRow MEMORY_ROWS[] = {
    {"memory_registry_value", "a registry value, one of 100,000"},
    {"memory_queued_record", "the copy of a record, as it is queued"},
};

using Contenders = std::map<std::string, double>;

// By row; the names of contenders may carry a size.
struct Results {
  std::map<std::string, Contenders> times;  // nanoseconds
  std::map<std::string, Contenders> bytes;
  std::map<std::string, std::map<double, double>> growth;  // nanoseconds by size
  double descriptorLimit = 0;                              // of launch_descriptors
};

double UnitOf(const std::string& unit) {
  return unit == "ns" ? 1 : unit == "us" ? 1e3 : unit == "ms" ? 1e6 : 1e9;
}

// The time of one item. Benchmarks measure the processor's time unless their name says otherwise.
double TimeOf(const rapidjson::Value& entry, const std::string& name) {
  if (entry.HasMember("items_per_second")) {
    return 1e9 / entry["items_per_second"].GetDouble();
  }
  const bool isReal = name.find("/real_time") != std::string::npos ||
                      name.find("/manual_time") != std::string::npos;
  return entry[isReal ? "real_time" : "cpu_time"].GetDouble() *
         UnitOf(entry["time_unit"].GetString());
}

std::vector<std::string> Split(const std::string& name) {
  std::vector<std::string> parts;
  size_t begin = 0;
  for (size_t end = name.find('/'); end != std::string::npos; end = name.find('/', begin)) {
    parts.push_back(name.substr(begin, end - begin));
    begin = end + 1;
  }
  parts.push_back(name.substr(begin));
  return parts;
}

void Take(const rapidjson::Value& entry, Results& results) {
  if (!entry.HasMember("aggregate_name") ||
      std::string(entry["aggregate_name"].GetString()) != "median" ||
      entry.HasMember("error_occurred")) {
    return;
  }
  const std::string name = entry["run_name"].GetString();
  const std::vector<std::string> parts = Split(name);
  if (parts.size() < 2) {
    return;
  }
  if (parts[0] == "launch_descriptors" && entry.HasMember("descriptors")) {
    results.descriptorLimit = entry["descriptors"].GetDouble();
  }
  if (entry.HasMember("bytes")) {
    results.bytes[parts[0]][parts[1]] = entry["bytes"].GetDouble();
  } else if (parts[0].starts_with("growth_")) {
    results.growth[parts[0]][std::stod(parts.at(2))] = TimeOf(entry, name);
  } else {
    results.times[parts[0]][parts[1]] = TimeOf(entry, name);
  }
}

bool Read(const char* path, Results& results) {
  std::ifstream file(path);
  rapidjson::IStreamWrapper stream(file);
  rapidjson::Document document;
  if (document.ParseStream(stream).HasParseError() || !document.HasMember("benchmarks")) {
    return false;
  }
  for (const auto& entry : document["benchmarks"].GetArray()) {
    Take(entry, results);
  }
  return true;
}

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

std::string Ratio(double ours, std::optional<double> other) {
  char text[32] = "";
  if (other) {
    snprintf(text, sizeof text, "%.2f", ours / *other);
  }
  return text;
}

std::optional<double> Find(const Contenders& contenders, const std::string& name) {
  const auto found = contenders.find(name);
  return found != contenders.end() ? std::optional(found->second) : std::nullopt;
}

bool IsPeer(const std::string& name) { return name != OURS_NAME && name != LIMIT_NAME; }

std::optional<double> BestPeer(const Contenders& contenders) {
  std::optional<double> best;
  for (const auto& [name, time] : contenders) {
    if (IsPeer(name) && (!best || time < *best)) {
      best = time;
    }
  }
  return best;
}

// The peers, each with its figure as `show` formats it, the best first.
template <typename Show>
std::string Peers(const Contenders& contenders, const Show& show) {
  std::vector<std::pair<double, std::string>> peers;
  for (const auto& [name, figure] : contenders) {
    if (IsPeer(name)) {
      peers.emplace_back(figure, name);
    }
  }
  std::sort(peers.begin(), peers.end());
  std::string text;
  for (const auto& [figure, name] : peers) {
    text += (text.empty() ? "" : ", ") + name + " " + show(figure);
  }
  return text;
}

// The most that our time may be.
std::optional<double> Allowed(const Row& row, const Results& results) {
  switch (row.against) {
    case Against::NANOSECONDS:
      return row.allowed;
    case Against::NANOSECONDS_OR_RATIO: {
      const Contenders& contenders = results.times.at(row.id);
      const auto limit = Find(contenders, LIMIT_NAME);
      const auto other = limit ? limit : BestPeer(contenders);
      return std::max(row.allowed, other.value_or(0) * row.ratio);
    }
    case Against::LIMIT: {
      const auto limit = Find(results.times.at(row.id), LIMIT_NAME);
      return limit ? std::optional(*limit * row.allowed) : std::nullopt;
    }
    case Against::BEST_PEER: {
      const auto best = BestPeer(results.times.at(row.id));
      return best ? std::optional(*best * row.allowed) : std::nullopt;
    }
    case Against::SMALL_HOST: {
      const auto host = results.times.find("launch_small");
      const auto small =
          host != results.times.end() ? Find(host->second, OURS_NAME) : std::optional<double>();
      return small ? std::optional(*small * row.allowed) : std::nullopt;
    }
  }
  return std::nullopt;
}

void PrintRow(const Row& row, const Results& results, std::string& notes) {
  const auto found = results.times.find(row.id);
  const auto ours = found != results.times.end() ? Find(found->second, OURS_NAME) : std::nullopt;
  if (!ours) {
    printf("| %s | not measured | | | | | %s |\n", row.title, row.target);
    return;
  }
  const Contenders& contenders = found->second;
  const auto limit = Find(contenders, LIMIT_NAME);
  const auto allowed = Allowed(row, results);
  const bool isMet = allowed && *ours <= *allowed;
  printf("| %s | %s | %s | %s | %s | %s | %s: %s |\n", row.title, Shown(*ours).c_str(),
         Peers(contenders, Shown).c_str(), Ratio(*ours, BestPeer(contenders)).c_str(),
         limit ? Shown(*limit).c_str() : "", Ratio(*ours, limit).c_str(), row.target,
         isMet     ? "met"
         : allowed ? "**missed**"
                   : "nothing to compare with");
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
  printf("| What | Ours | Peers |\n| --- | --- | --- |\n");
  for (const MemoryRow& row : MEMORY_ROWS) {
    const auto found = results.bytes.find(row.id);
    const auto ours = found != results.bytes.end() ? Find(found->second, OURS_NAME) : std::nullopt;
    if (ours) {
      printf("| %s | %s | %s |\n", row.title, show(*ours).c_str(),
             Peers(found->second, show).c_str());
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  Results results;
  for (int index = 1; index < count; ++index) {
    if (!Read(arguments[index], results)) {
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
