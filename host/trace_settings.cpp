#include "host/trace_settings.h"

#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>

#include "archive_module/names.h"
#include "base/regular_file.h"
#include "host/file_replacement.h"
#include "host/host_error.h"
#include "platform/profile/profile.h"
#include "trace/config_files.h"

namespace {

constexpr char LEVEL_KEY[] = "FileDebugLevel";
constexpr char INTERVAL_KEY[] = "DynamicUpdate";
constexpr uint32_t UNSET = UINT32_MAX;

struct Setting {
  const char* section;
  const char* key;
};
constexpr Setting LEVEL = {MODULE_NAME, LEVEL_KEY};
constexpr Setting INTERVAL = {TRACE_GLOBAL_SECTION, INTERVAL_KEY};

// The number as the module reads it; nothing when the file or the section is missing.
std::optional<uint32_t> ReadSetting(const std::string& path, const Setting& setting) {
  std::string text;
  if (!ReadRegularFile(path, text, LONGEST_CONFIG_FILE)) {
    if (access(path.c_str(), R_OK) != 0 && errno == EACCES) {
      throw CHostError(EX_NOPERM, path + " may not be read: run em_host as root.");
    }
    return std::nullopt;
  }
  const auto section = CConfigSection::Find(text, setting.section);
  return section ? std::optional(section->ReadNumber(setting.key).value_or(UNSET)) : std::nullopt;
}

uint32_t ZeroIfUnset(uint32_t number) { return number == UNSET ? 0 : number; }

// The profile calls compare names with case, the module without: writes into the section that the
// module reads, in whatever case its name is.
bool Write(const std::string& path, const Setting& setting, uint32_t number) {
  const CProfile profile(path);
  std::string section = setting.section;
  for (const std::string& name : profile.ReadSections()) {
    if (strcasecmp(name.c_str(), setting.section) == 0) {
      section = name;
      break;
    }
  }
  return profile.WriteUnsigned(section, setting.key, number);
}

// For the life of the object, new files are readable by all and writable by their owner only:
// agents of every user read these files.
class ReadableForAll {
 public:
  ReadableForAll() : m_nUmask(umask(S_IWGRP | S_IWOTH)) {}
  ~ReadableForAll() { umask(m_nUmask); }
  ReadableForAll(const ReadableForAll&) = delete;
  ReadableForAll& operator=(const ReadableForAll&) = delete;

 private:
  const mode_t m_nUmask;
};

bool IsForbidden(int error) { return error == EACCES || error == EPERM; }

std::string AdviceAgainst(int error) {
  if (IsForbidden(error)) {
    return "run em_host as root.";
  }
  if (error == EROFS) {
    return "its file system is mounted read-only: make it writable, or change the file where the "
           "file system is made.";
  }
  return "check its directory.";
}

// Changes a copy, and keeps it only when agents will read the new value there.
void Replace(const std::string& path, const Setting& setting, uint32_t number) {
  const ReadableForAll mode;
  CFileReplacement file(path);
  errno = EIO;
  if (!Write(file.GetCopy(), setting, number)) {
    throw std::system_error(errno, std::generic_category());
  }
  if (ReadSetting(file.GetCopy(), setting) != number) {
    throw CHostError(EX_DATAERR, path + " was not changed: agents would not read the new value " +
                                     "there. Remove the line \"EndOfFile\" from it, and lines of " +
                                     "the section [" + setting.section + "] that contain \"" +
                                     setting.key + "\" besides its own.");
  }
  file.Commit();
}

void Store(const std::string& path, const Setting& setting, uint32_t number) {
  try {
    Replace(path, setting, number);
  } catch (const std::system_error& error) {
    const int reason = error.code().value();
    throw CHostError(
        IsForbidden(reason) ? EX_NOPERM : EX_CANTCREAT,
        path + " cannot be written (" + strerror(reason) + "): " + AdviceAgainst(reason));
  }
}

}  // namespace

TraceSettings ReadTraceSettings() {
  TraceSettings settings;
  const uint32_t interval = ReadSetting(TRACE_GLOBAL_FILE, INTERVAL).value_or(UNSET);
  settings.interval = ZeroIfUnset(interval);
  settings.isIntervalSet = interval != UNSET;
  for (const std::string& path : ListTraceConfigFiles()) {
    if (const auto level = ReadSetting(path, LEVEL)) {
      settings.level = ZeroIfUnset(*level);
      settings.levelFile = path;
      break;
    }
  }
  return settings;
}

void StoreTraceLevel(uint32_t level) {
  const std::string file = ReadTraceSettings().levelFile;
  Store(file.empty() ? TRACE_GLOBAL_FILE : file, LEVEL, level);
}

void StoreTraceInterval(uint32_t seconds) { Store(TRACE_GLOBAL_FILE, INTERVAL, seconds); }
