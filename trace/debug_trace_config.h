#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

// The trace settings of one module: level, flags and how often they are read again.
//
// They come from the files below "/etc/orvane/CorvistaSuite/TraceConfig" whose name contains ".ini"
// and from the environment variables CV_LOG_DEBUG_LEVEL and CV_LOG_DYNAMIC_UPDATE (decimal), which
// take precedence over the files. Files that are missing, cannot be read or are longer than 16 MiB
// leave tracing off; no error is reported.
//
// Thread safety: every operation may be called from any thread. Initialised at compile time and
// without a destructor, so that it is usable before the first and after the last static object of
// the process.
class CDebugTraceConfig {
 public:
  constexpr CDebugTraceConfig() = default;
  CDebugTraceConfig(const CDebugTraceConfig&) = delete;
  CDebugTraceConfig& operator=(const CDebugTraceConfig&) = delete;

  // Reads the settings of the section `moduleName` (null: empty), a string that must outlive the
  // object: the sink gets it with each line, perhaps while the process ends. May be repeated: a
  // setting that is no longer found is then reset, unless there is no file at all or a profile
  // writer holds its file. Returns true.
  bool Load(const char* moduleName);

  // Forgets the name and frees the paths. The settings stay; they are not read again before the
  // next Load().
  void Release();

  // True when the level was not 0 at the last Load().
  bool IsEnabled() const { return m_bEnabled.load(std::memory_order_relaxed); }

  // Lines with a level above this one are dropped; 0 when unset.
  uint32_t GetDebugLevel() const { return m_nDebugLevel; }

  // "TraceFlags" and "MemoryTracesFlag"; nothing in the module depends on them. The second is
  // filled by a dynamic update only.
  uint32_t GetTraceFlags() const { return m_nTraceFlags; }
  uint32_t GetMemoryTracesFlag() const { return m_nMemoryTracesFlag; }

  // Seconds between two dynamic updates; 0: never.
  uint32_t GetDynamicUpdate() const { return m_nDynamicUpdate; }

  // The name given to Load(), or an empty one after Release().
  const char* GetModuleName() const;

 protected:
  ~CDebugTraceConfig() = default;

  // Rereads the files that have become newer, once the dynamic update interval has passed since the
  // last check or the clock was set back. IsEnabled() does not change, so that a level of 0 can be
  // raised again; a missing key keeps its value. A file that a profile writer holds is left to a
  // later check.
  void UpdateWhenDue();

 private:
  struct Sources;

  Sources& GetSources();
  void LoadInterval(bool filesExist);
  uint32_t LoadGlobalSection();
  void LoadLevel(const std::vector<std::string>& paths);
  uint32_t LoadModuleSection(const std::vector<std::string>& paths);
  void UpdateFromGlobalFile();
  void UpdateFromModuleFile();

  std::atomic<uint32_t> m_nDebugLevel = 0;
  std::atomic<uint32_t> m_nTraceFlags = 0;
  std::atomic<uint32_t> m_nMemoryTracesFlag = 0;
  std::atomic<bool> m_bEnabled = false;
  std::atomic<uint32_t> m_nDynamicUpdate = 0;
  std::atomic<int64_t> m_nLastCheck = 0;  // seconds since the epoch
  std::atomic<const char*> m_pModuleName = nullptr;

  std::mutex m_oSourcesLock;
  Sources* m_pSources = nullptr;  // owned, freed by Release()
};
