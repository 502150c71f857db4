#include "platform/profile/profile_string.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string_view>

#include "base/file_lock.h"
#include "platform/profile/profile_file.h"
#include "platform/profile/profile_lines.h"
#include "platform/profile/profile_reader.h"
#include "platform/profile/profile_writer.h"
#include "trace/debug_client.h"
#include "trace/trace_shield.h"

namespace {

// How long a call waits for the lock of a file, counted from before it waits for the calls of other
// threads.
constexpr std::chrono::seconds LONGEST_WAIT(1);

// Serialises the calls of this process (reads may run together), also where the file system has no
// locks. The lock of a file is polled, in no order: alone it would let readers starve a writer for
// its whole second. Nothing is traced under this lock: the sink may call back.
std::shared_mutex& ProcessLock() {
  static constinit std::shared_mutex lock;
  return lock;
}

const char* Shown(const char* text) { return text != nullptr ? text : "<nil>"; }

// False when the file cannot be read. `length` is set when the question was answered.
bool ReadAnswer(CProfileReader reader, const char* fileName, std::optional<uint32_t>& length) {
  const CTraceShield noCancellation;
  const CFileLock::Time until = std::chrono::steady_clock::now() + LONGEST_WAIT;
  const std::shared_lock guard(ProcessLock());
  const CProfileFile file(fileName, CProfileFile::Mode::READ);
  if (!file.IsOpen()) {
    return false;
  }
  const CFileLock lock(file.GetDescriptor(), CFileLock::Kind::SHARED, until);
  CProfileLines lines(file.GetDescriptor());
  while (reader.TakeNext(lines)) {
  }
  if (lines.HasFailed()) {
    return false;
  }
  length = reader.Finish();
  return true;
}

uint32_t StoreDefault(std::string_view text, char* buffer, uint32_t size) {
  const size_t length = std::min<size_t>(text.size(), size - 1);
  std::memmove(buffer, text.data(), length);
  buffer[length] = '\0';
  return static_cast<uint32_t>(length);
}

ProfileUpdate Update(const char* section, const char* key, const char* value,
                     const char* fileName) {
  const CTraceShield noCancellation;
  const CFileLock::Time until = std::chrono::steady_clock::now() + LONGEST_WAIT;
  const std::unique_lock guard(ProcessLock());
  return UpdateProfileFile(section, key, value, fileName, until);
}

}  // namespace

uint32_t GetPrivateProfileString(const char* section, const char* key, const char* defaultValue,
                                 char* buffer, uint32_t size, const char* fileName) {
  if (buffer == nullptr || size == 0) {
    return 0;
  }
  buffer[0] = '\0';
  std::optional<uint32_t> length;
  if (fileName == nullptr ||
      !ReadAnswer(CProfileReader(section, key, buffer, size), fileName, length)) {
    buffer[0] = '\0';
    DEBUG_TRACE(4, "GetPrivateProfileString: Cannot open %s\n", Shown(fileName));
  }
  if (length) {
    return *length;
  }
  const bool hasDefault = section != nullptr && key != nullptr && defaultValue != nullptr;
  return hasDefault ? StoreDefault(defaultValue, buffer, size) : 0;
}

uint32_t WritePrivateProfileString(const char* section, const char* key, const char* value,
                                   const char* fileName) {
  if (section == nullptr) {
    DEBUG_TRACE(4, "WritePrivateProfileString: ## WARNING: invalid pointer to AppName\n");
    return 0;
  }
  if (fileName == nullptr) {
    DEBUG_TRACE(4, "WritePrivateProfileString: ## WARNING: invalid pointer to FileName\n");
    return 0;
  }
  DEBUG_TRACE(4, "WritePrivateProfileString(%s, %s, %s, %s)\n", section, Shown(key), Shown(value),
              fileName);
  const ProfileUpdate update = Update(section, key, value, fileName);
  if (update == ProfileUpdate::CANNOT_OPEN) {
    DEBUG_TRACE(1, "WritePrivateProfileString: ## WARNING: append open error: %s\n", fileName);
  }
  const uint32_t result = update == ProfileUpdate::DONE ? 1 : 0;
  DEBUG_TRACE(4, "WritePrivateProfileString rc=0x%04x\n", result);
  return result;
}
