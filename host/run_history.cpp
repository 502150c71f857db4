#include "host/run_history.h"

#include <rapidjson/document.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <string_view>
#include <utility>

#include "base/regular_file.h"
#include "host/host_error.h"

namespace {

using Json = rapidjson::Value;

const Json* Find(const Json& object, const char* name) {
  const auto member = object.FindMember(name);
  return member == object.MemberEnd() ? nullptr : &member->value;
}

std::string Text(const Json& object, const char* name) {
  const Json* value = Find(object, name);
  return value != nullptr && value->IsString() ? value->GetString() : "";
}

template <typename Number>
std::optional<Number> NumberOf(const Json& object, const char* name) {
  const Json* value = Find(object, name);
  if (value == nullptr || !value->IsNumber()) {
    return std::nullopt;
  }
  return static_cast<Number>(value->GetDouble());
}

std::optional<CollectorRun> ParseRun(const std::string& line) {
  rapidjson::Document object;
  if (object.Parse(line.c_str()).HasParseError() || !object.IsObject()) {
    return std::nullopt;
  }
  return CollectorRun{line,
                      Text(object, "start"),
                      NumberOf<double>(object, "duration"),
                      NumberOf<int64_t>(object, "size"),
                      NumberOf<int>(object, "exit"),
                      NumberOf<int>(object, "signal"),
                      Text(object, "ended"),
                      NumberOf<int64_t>(object, "memory")};
}

constexpr std::array<std::pair<std::string_view, const char*>, 12> ENDS = {{
    {"done", "done"},
    {"time", "ended: it ran longer than RUN_TIME"},
    {"space", "ended: less than FREE_SPACE was free"},
    {"memory", "ended: it needed more than MEMORY"},
    {"missing", "failed: it left no archive"},
    {"empty", "failed: the archive was empty"},
    {"broken", "failed: the archive could not be read to its end"},
    {"large", "failed: the archive was larger than ARCHIVE_SIZE"},
    {"unsaved", "failed: the archive could not be flushed to the disk or got no checksum"},
    {"stopped", "ended: the guard got a signal"},
    {"killed", "killed with the guard, as a stop of the agent does"},
    {"hung", "failed: it hangs in the kernel and could not be ended"},
}};

}  // namespace

std::vector<CollectorRun> ReadRunHistory() {
  std::string text;
  if (access(HISTORY_FILE, F_OK) != 0 && errno == ENOENT) {
    return {};
  }
  if (!ReadRegularFile(HISTORY_FILE, text)) {
    throw CHostError(EX_NOINPUT, std::string("The history ") + HISTORY_FILE + " cannot be read (" +
                                     strerror(errno) +
                                     "): run em_host as root, or repair the file.");
  }
  std::vector<CollectorRun> runs;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (std::optional<CollectorRun> run = ParseRun(line)) {
      runs.push_back(std::move(*run));
    }
  }
  return runs;
}

std::string ExplainRunEnd(const CollectorRun& run) {
  if (run.signal && run.ended == "signal") {
    return "failed: signal " + std::to_string(*run.signal) + " ended it";
  }
  if (run.exitStatus && run.ended == "exit") {
    return "failed: exit status " + std::to_string(*run.exitStatus);
  }
  for (const auto& [word, sentence] : ENDS) {
    if (run.ended == word) {
      return sentence;
    }
  }
  return run.ended;
}
