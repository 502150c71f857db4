#include "bench/results.h"

#include <rapidjson/document.h>
#include <rapidjson/istreamwrapper.h>

#include <fstream>
#include <string>
#include <vector>

namespace {

double UnitOf(const std::string& unit) {
  return unit == "ns" ? 1 : unit == "us" ? 1e3 : unit == "ms" ? 1e6 : 1e9;
}

// Benchmarks measure the processor's time unless their name says otherwise.
const char* TimeFieldOf(const std::string& name) {
  const bool isReal = name.find("/real_time") != std::string::npos ||
                      name.find("/manual_time") != std::string::npos;
  return isReal ? "real_time" : "cpu_time";
}

// The time of one item.
double TimeOf(const rapidjson::Value& entry, const std::string& name) {
  if (entry.HasMember("items_per_second")) {
    return 1e9 / entry["items_per_second"].GetDouble();
  }
  return entry[TimeFieldOf(name)].GetDouble() * UnitOf(entry["time_unit"].GetString());
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

// "median", "cv" and the like; "once" for a benchmark that runs only once.
std::string KindOf(const rapidjson::Value& entry) {
  if (entry.HasMember("aggregate_name")) {
    return entry["aggregate_name"].GetString();
  }
  return entry["repetitions"].GetInt() == 1 ? "once" : "";
}

void TakeMedian(const rapidjson::Value& entry, const std::string& name,
                const std::vector<std::string>& parts, Results& results) {
  if (parts[0] == "launch_descriptors" && entry.HasMember("descriptors")) {
    results.descriptorLimit = entry["descriptors"].GetDouble();
  }
  if (entry.HasMember("bytes")) {
    results.bytes[parts[0]][parts[1]].value = entry["bytes"].GetDouble();
  } else if (parts[0].starts_with("growth_")) {
    results.growth[parts[0]][std::stod(parts.at(2))] = TimeOf(entry, name);
  } else {
    results.times[parts[0]][parts[1]].value = TimeOf(entry, name);
  }
}

void Take(const rapidjson::Value& entry, Results& results) {
  const std::string name = entry["run_name"].GetString();
  const std::vector<std::string> parts = Split(name);
  if (parts.size() < 2 || entry.HasMember("error_occurred")) {
    return;
  }
  const std::string kind = KindOf(entry);
  if (kind == "median" || kind == "once") {
    TakeMedian(entry, name, parts, results);
  } else if (kind == "cv" && !parts[0].starts_with("growth_") && !entry.HasMember("bytes")) {
    results.times[parts[0]][parts[1]].noise = entry[TimeFieldOf(name)].GetDouble();
  }
}

}  // namespace

bool ReadResults(const char* path, Results& results) {
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
