#include "soak/trace_files.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/profile/profile_string.h"
#include "trace/config_files.h"

namespace fs = std::filesystem;

namespace {

constexpr char MODULE[] = "EM_TALVOR";
constexpr uint32_t EVERY_LINE = 5;

std::string Configuration(uint32_t level, uint32_t interval, uint32_t flags) {
  return "[GlobalDebugSettings]\nDynamicUpdate=" + std::to_string(interval) + "\n[" + MODULE +
         "]\nFileDebugLevel=" + std::to_string(level) + "\nTraceFlags=" + std::to_string(flags) +
         "\nMemoryTracesFlag=" + std::to_string(flags / 2) + "\n";
}

std::string PathOf(const char* name) { return std::string(TRACE_CONFIG_DIRECTORY) + "/" + name; }

}  // namespace

CTraceFiles::CTraceFiles(bool isFull) : m_bFull(isFull) {
  fs::remove_all(TRACE_CONFIG_DIRECTORY);
  fs::create_directories(TRACE_CONFIG_DIRECTORY);
  ReplaceGlobalFile(Configuration(EVERY_LINE, 1, 0));
}

CTraceFiles::~CTraceFiles() {
  std::error_code ignored;
  fs::remove_all(TRACE_CONFIG_DIRECTORY, ignored);
}

void CTraceFiles::Change(CDraw& draw) {
  const uint32_t flags = draw.Below(1000);
  const uint32_t interval = draw.OneIn(10) ? 0 : 1;
  const uint32_t level = draw.OneIn(5) ? UINT32_MAX - draw.Below(2) : draw.Below(7);
  switch (draw.Below(m_bFull ? 3 : 9)) {
    case 0:
      WritePrivateProfileString(MODULE, "TraceFlags", std::to_string(flags).c_str(),
                                TRACE_GLOBAL_FILE);
      break;
    case 1:
    case 2:
      ReplaceGlobalFile(Configuration(m_bFull ? EVERY_LINE : level, interval, flags));
      break;
    case 3:
      std::ofstream(TRACE_GLOBAL_FILE) << "[" << MODULE << "\nFileDebugLevel=\n[[]]\n=";
      break;
    case 4:
      std::ofstream(PathOf("a.ini")) << Configuration(level, interval, flags);
      break;
    case 5:
      std::ofstream(PathOf("z.ini.save")) << std::string(size_t{1} << 20, 'z');
      break;
    case 6:
      std::remove(TRACE_GLOBAL_FILE);
      break;
    case 7:
      std::remove(PathOf("a.ini").c_str());
      break;
    default:
      WritePrivateProfileString(MODULE, nullptr, nullptr, TRACE_GLOBAL_FILE);
      break;
  }
}

// Whole at any time, also for those that read without a lock.
void CTraceFiles::ReplaceGlobalFile(const std::string& text) {
  std::string path = PathOf("next.XXXXXX");
  const int file = mkstemp(path.data());
  if (file < 0) {
    return;
  }
  close(file);
  std::ofstream(path) << text;
  std::rename(path.c_str(), TRACE_GLOBAL_FILE);
}
