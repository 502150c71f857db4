#include "archive_module/collector_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <new>
#include <string_view>

#include "archive_module/names.h"
#include "platform/registry/registry.h"
#include "platform/registry/registry_path.h"
#include "trace/debug_client.h"

namespace {

bool IsRootKeyName(const std::string& name) {
  return std::find(ROOT_KEY_NAMES.begin(), ROOT_KEY_NAMES.end(), name) != ROOT_KEY_NAMES.end();
}

// Reads "DataRoot". False, with the reason traced, when there is none.
bool QueryDataDir(std::string& directory) {
  std::string rootKey;
  if (!ReadRegistryPointer(rootKey, COLLECTOR_NAME)) {
    DEBUG_TRACE(
        2,
        "\nEM_TALVOR (DataDir) : ## Talvor pointer key not existing - no Corvista component installed.");
    return false;
  }
  DEBUG_TRACE(3, "\nEM_TALVOR (DataDir) : Found Talvor root registry key: \"%s\"", rootKey.c_str());
  const std::string path = rootKey + "\\" + SETUP_KEY;
  CRegistry registry;
  DEBUG_TRACE(4, "\nEM_TALVOR (DataDir) :   open Talvor setup key: \"%s\"...", path.c_str());
  if (OpenCollectorSetupKey(registry, path) != REGISTRY_OK) {
    DEBUG_TRACE(1, "\nEM_TALVOR (DataDir) : ## ERROR 0x%08X! Could not open registry key \"%s\"!",
                static_cast<uint32_t>(registry.GetStatus()), path.c_str());
    return false;
  }
  // The line says "file root" for the data root too, deliberately.
  DEBUG_TRACE(4, "\nEM_TALVOR (DataDir) :   query Talvor file root value: \"%s\"...",
              DATA_ROOT_VALUE);
  if (registry.QueryValue(directory, DATA_ROOT_VALUE) != REGISTRY_OK) {
    DEBUG_TRACE(
        1,
        "\nEM_TALVOR (DataDir) : ## ERROR 0x%08X! Could not query registry value \"%s\" in Talvor setup key!",
        static_cast<uint32_t>(registry.GetStatus()), DATA_ROOT_VALUE);
    return false;
  }
  // An empty directory deliberately stays empty: the archive then lies in the working directory.
  if (!directory.empty() && !directory.ends_with('/')) {
    directory += '/';
  }
  DEBUG_TRACE(3, "\nEM_TALVOR (DataDir) : Talvor data dir:   \"%s\"", directory.c_str());
  return true;
}

// Reads "FileRoot". False, with the reason traced, when there is none.
bool QueryBinDir(std::string& directory) {
  std::string rootKey;
  if (!ReadRegistryPointer(rootKey, COLLECTOR_NAME)) {
    DEBUG_TRACE(
        2,
        "\nEM_TALVOR (BinDir)  : ## Talvor pointer key not existing - no Corvista component installed.");
    return false;
  }
  DEBUG_TRACE(3, "\nEM_TALVOR (BinDir)  : Found Talvor root registry key: \"%s\"", rootKey.c_str());
  const std::string path = rootKey + "\\" + SETUP_KEY;
  CRegistry registry;
  DEBUG_TRACE(4, "\nEM_TALVOR (BinDir)  :   open Talvor setup key: \"%s\"...", path.c_str());
  if (OpenCollectorSetupKey(registry, path) != REGISTRY_OK) {
    DEBUG_TRACE(1, "\nEM_TALVOR (BinDir)  : ## ERROR 0x%08X! Could not open registry key \"%s\"!",
                static_cast<uint32_t>(registry.GetStatus()), path.c_str());
    return false;
  }
  DEBUG_TRACE(4, "\nEM_TALVOR (BinDir)  :   query Talvor file root value: \"%s\"...",
              FILE_ROOT_VALUE);
  if (registry.QueryValue(directory, FILE_ROOT_VALUE) != REGISTRY_OK) {
    DEBUG_TRACE(
        1,
        "\nEM_TALVOR (BinDir)  : ## ERROR 0x%08X! Could not query registry value \"%s\" in Talvor setup key!",
        static_cast<uint32_t>(registry.GetStatus()), FILE_ROOT_VALUE);
    return false;
  }
  if (!directory.ends_with('/')) {
    directory += '/';
  }
  DEBUG_TRACE(3, "\nEM_TALVOR (BinDir)  : Talvor base dir:   \"%s\"", directory.c_str());
  return true;
}

constexpr int64_t BYTES_PER_KILOBYTE = 1024;

ArchiveState::Time TimeOf(const timespec& time) { return {time.tv_sec, time.tv_nsec}; }

}  // namespace

int32_t OpenCollectorSetupKey(CRegistry& registry, const std::string& path) {
  const std::string_view first = CRegistryPath(path).Next();
  const std::string root = ToUpperRegistryName(first);
  if (!IsRootKeyName(root)) {
    return registry.Open(path.c_str(), HKEY_LOCAL_MACHINE);
  }
  std::string canonical = path;
  canonical.replace(static_cast<size_t>(first.data() - path.data()), first.size(), root);
  return registry.Open(canonical.c_str(), nullptr);
}

bool GetBinDir(std::string& directory) {
  try {
    return QueryBinDir(directory);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool GetDataDir(std::string& directory) {
  try {
    if (QueryDataDir(directory)) {
      return true;
    }
    DEBUG_TRACE(
        4, "\nEM_TALVOR (DataDir) :   no Talvor data root directory available, take file root...");
    return QueryBinDir(directory);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool FileExists(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0;
}

std::optional<ArchiveState> ExamineArchive(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  return ArchiveState{status.st_dev, status.st_ino, TimeOf(status.st_mtim), TimeOf(status.st_ctim)};
}

int32_t KilobytesOf(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? static_cast<int32_t>(std::min<int64_t>(
                                                status.st_size / BYTES_PER_KILOBYTE, INT32_MAX))
                                          : 0;
}
