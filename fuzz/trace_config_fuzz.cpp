// The trace configuration is loaded from its files and from the environment, and updated from files
// that became newer.
//
// Input: see text_input.h. Pieces that a line "---" separates: the global file, the module's file,
// the environment's level, the environment's interval, the newer global file, the newer module's
// file. What is missing is empty; an empty string for the environment means an unset variable.
//
// It writes below /etc: to be run in the sandbox only.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "archive_module/names.h"
#include "fuzz/check.h"
#include "fuzz/text_input.h"
#include "trace/config_files.h"
#include "trace/debug_trace_config.h"

namespace {

constexpr char DIRECTORY[] = "/etc/orvane/CorvistaSuite/TraceConfig/";
constexpr uint32_t UNSET = UINT32_MAX;

// A file that stays open, which makes filling it cheap.
class ConfigFile {
 public:
  explicit ConfigFile(const char* name) {
    std::filesystem::create_directories(DIRECTORY);
    m_nDescriptor =
        open((std::string(DIRECTORY) + name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    FUZZ_CHECK(m_nDescriptor >= 0);
  }

  void Fill(std::string_view content, time_t modificationTime) const {
    FUZZ_CHECK(ftruncate(m_nDescriptor, 0) == 0);
    FUZZ_CHECK(pwrite(m_nDescriptor, content.data(), content.size(), 0) ==
               static_cast<ssize_t>(content.size()));
    const timespec times[2] = {{modificationTime, 0}, {modificationTime, 0}};
    FUZZ_CHECK(futimens(m_nDescriptor, times) == 0);
  }

 private:
  int m_nDescriptor;
};

const ConfigFile& GlobalFile() {
  static const ConfigFile file("global_trace.ini");
  return file;
}

const ConfigFile& ModuleFile() {
  static const ConfigFile file("module.ini");
  return file;
}

class Config : public CDebugTraceConfig {
 public:
  ~Config() { Release(); }

  using CDebugTraceConfig::UpdateWhenDue;
};

std::optional<uint32_t> SetEnvironment(const char* name, std::string_view value) {
  const std::string text(value);
  if (value.empty()) {
    unsetenv(name);
    return std::nullopt;
  }
  setenv(name, text.c_str(), 1);
  return ReadTraceNumber(text.c_str(), 10);
}

// The level in the first of these files that has the module's section.
uint32_t LevelIn(std::initializer_list<std::string_view> texts) {
  for (const std::string_view text : texts) {
    if (const auto section = CConfigSection::Find(text, MODULE_NAME)) {
      const uint32_t level = section->ReadNumber("FileDebugLevel").value_or(UNSET);
      return level == UNSET ? 0 : level;
    }
  }
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = ReadText(data, size);
  std::string_view rest = text;
  const std::string_view globalText = TakePiece(rest, "---\n");
  const std::string_view moduleText = TakePiece(rest, "---\n");
  const auto level = SetEnvironment("CV_LOG_DEBUG_LEVEL", TakePiece(rest, "---\n"));
  const auto interval = SetEnvironment("CV_LOG_DYNAMIC_UPDATE", TakePiece(rest, "---\n"));
  GlobalFile().Fill(globalText, 1);
  ModuleFile().Fill(moduleText, 1);

  Config config;
  FUZZ_CHECK(config.Load(MODULE_NAME));
  FUZZ_CHECK(config.GetDebugLevel() == level.value_or(LevelIn({globalText, moduleText})));
  FUZZ_CHECK(config.IsEnabled() == (config.GetDebugLevel() != 0));
  FUZZ_CHECK(config.GetDynamicUpdate() != UNSET);
  FUZZ_CHECK(!interval || config.GetDynamicUpdate() == (*interval == UNSET ? 0 : *interval));

  const bool wasEnabled = config.IsEnabled();
  GlobalFile().Fill(TakePiece(rest, "---\n"), 2);
  ModuleFile().Fill(rest, 2);
  config.UpdateWhenDue();
  FUZZ_CHECK(config.IsEnabled() == wasEnabled);
  FUZZ_CHECK(config.GetDebugLevel() != UNSET || level == UNSET);
  FUZZ_CHECK(config.GetDynamicUpdate() != UNSET);
  return 0;
}
