#include "trace/debug_trace_config.h"

#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <optional>

#include "base/regular_file.h"
#include "trace/config_files.h"

namespace {

// Marks a setting that no file and no environment variable has given.
constexpr uint32_t UNSET = static_cast<uint32_t>(-1);

std::optional<uint32_t> ReadEnvironment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) {
    return std::nullopt;
  }
  return ReadTraceNumber(value, 10);
}

uint32_t ZeroIfUnset(uint32_t number) { return number == UNSET ? 0 : number; }

}  // namespace

struct CDebugTraceConfig::Sources {
  struct File {
    std::string path;
    FileStamp stamp;

    // Reads the file and keeps its stamp; none while a writer holds the file, so that the next
    // check reads it again. False when it cannot be read.
    bool Read(std::string& text, bool& isHeld) {
      FileStamp current;
      StatRegularFile(path, current);
      if (!ReadRegularFile(path, text, LONGEST_CONFIG_FILE, &isHeld)) {
        return false;
      }
      stamp = isHeld ? FileStamp() : current;
      return true;
    }

    // Reads the file when it is newer than the stamp, and updates the stamp. False otherwise, also
    // when it cannot be read or a writer holds it: the next check then tries again.
    bool ReadIfNewer(std::string& text) {
      FileStamp current;
      bool isHeld = false;
      if (!StatRegularFile(path, current) || current.modificationTime <= stamp.modificationTime ||
          !ReadRegularFile(path, text, LONGEST_CONFIG_FILE, &isHeld) || isHeld) {
        return false;
      }
      stamp = current;
      return true;
    }
  };

  File globalFile;
  File moduleFile;
};

const char* CDebugTraceConfig::GetModuleName() const {
  const char* name = m_pModuleName.load(std::memory_order_acquire);
  return name != nullptr ? name : "";
}

bool CDebugTraceConfig::Load(const char* moduleName) {
  const std::lock_guard guard(m_oSourcesLock);
  m_pModuleName.store(moduleName, std::memory_order_release);
  const std::vector<std::string> paths = ListTraceConfigFiles();
  LoadInterval(!paths.empty());
  LoadLevel(paths);
  m_bEnabled = m_nDebugLevel != 0;
  return true;
}

void CDebugTraceConfig::Release() {
  const std::lock_guard guard(m_oSourcesLock);
  m_pModuleName = nullptr;
  m_nDynamicUpdate = 0;
  delete m_pSources;
  m_pSources = nullptr;
}

CDebugTraceConfig::Sources& CDebugTraceConfig::GetSources() {
  if (m_pSources == nullptr) {
    m_pSources = std::make_unique<Sources>().release();
  }
  return *m_pSources;
}

void CDebugTraceConfig::LoadInterval(bool filesExist) {
  uint32_t interval = m_nDynamicUpdate;
  if (filesExist) {
    interval = LoadGlobalSection();
  }
  m_nDynamicUpdate = ZeroIfUnset(ReadEnvironment("CV_LOG_DYNAMIC_UPDATE").value_or(interval));
}

// Returns the interval, or UNSET.
uint32_t CDebugTraceConfig::LoadGlobalSection() {
  Sources::File& file = GetSources().globalFile;
  Sources::File current = {TRACE_GLOBAL_FILE, {}};
  std::string text;
  bool isHeld = false;
  const bool isRead = current.Read(text, isHeld);
  if (isHeld && current.path == file.path) {
    return m_nDynamicUpdate;
  }
  file = current;
  const auto section = isRead ? CConfigSection::Find(text, TRACE_GLOBAL_SECTION) : std::nullopt;
  return section ? section->ReadNumber("DynamicUpdate").value_or(UNSET) : UNSET;
}

void CDebugTraceConfig::LoadLevel(const std::vector<std::string>& paths) {
  uint32_t level = m_nDebugLevel;
  if (!paths.empty()) {
    level = LoadModuleSection(paths);
  }
  if (const auto environment = ReadEnvironment("CV_LOG_DEBUG_LEVEL")) {
    m_nDebugLevel = *environment;
  } else {
    m_nDebugLevel = ZeroIfUnset(level);
  }
}

// Takes the settings of the first file that holds the module's section. Returns the level, or
// UNSET.
uint32_t CDebugTraceConfig::LoadModuleSection(const std::vector<std::string>& paths) {
  Sources::File& file = GetSources().moduleFile;
  for (const std::string& path : paths) {
    Sources::File candidate = {path, {}};
    std::string text;
    bool isHeld = false;
    if (!candidate.Read(text, isHeld)) {
      continue;
    }
    if (isHeld && path == file.path) {
      return m_nDebugLevel;
    }
    if (const auto section = CConfigSection::Find(text, GetModuleName())) {
      file = candidate;
      m_nTraceFlags = section->ReadNumber("TraceFlags").value_or(0);
      return section->ReadNumber("FileDebugLevel").value_or(UNSET);
    }
  }
  file = {};
  m_nTraceFlags = 0;
  return UNSET;
}

void CDebugTraceConfig::UpdateWhenDue() {
  const int64_t interval = m_nDynamicUpdate.load(std::memory_order_relaxed);
  if (interval == 0) {
    return;
  }
  const int64_t now = std::time(nullptr);
  int64_t last = m_nLastCheck.load(std::memory_order_relaxed);
  if (now >= last && now - last < interval) {
    return;
  }
  if (!m_nLastCheck.compare_exchange_strong(last, now)) {
    return;  // another thread makes this check
  }
  try {
    const std::lock_guard guard(m_oSourcesLock);
    if (m_pSources != nullptr) {
      UpdateFromGlobalFile();
      UpdateFromModuleFile();
    }
  } catch (const std::exception&) {
    // Out of memory: the settings stay as they are until the next check.
  }
}

void CDebugTraceConfig::UpdateFromGlobalFile() {
  Sources::File& file = m_pSources->globalFile;
  std::string text;
  if (!file.ReadIfNewer(text)) {
    return;
  }
  if (const auto section = CConfigSection::Find(text, TRACE_GLOBAL_SECTION)) {
    if (const auto interval = section->ReadNumber("DynamicUpdate")) {
      m_nDynamicUpdate = ZeroIfUnset(*interval);
    }
  }
}

void CDebugTraceConfig::UpdateFromModuleFile() {
  Sources::File& file = m_pSources->moduleFile;
  std::string text;
  if (!file.ReadIfNewer(text)) {
    return;
  }
  if (const auto section = CConfigSection::Find(text, GetModuleName())) {
    if (const auto level = section->ReadNumber("FileDebugLevel")) {
      m_nDebugLevel = ZeroIfUnset(*level);
    }
    m_nTraceFlags = section->ReadNumber("TraceFlags").value_or(m_nTraceFlags);
    m_nMemoryTracesFlag = section->ReadNumber("MemoryTracesFlag").value_or(m_nMemoryTracesFlag);
  }
}
