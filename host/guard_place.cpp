#include "host/guard_place.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>

#include "archive_module/collector_files.h"
#include "archive_module/names.h"
#include "host/host_error.h"
#include "host/installation.h"
#include "platform/registry/registry.h"
#include "platform/registry/registry_path.h"
#include "tools/qamreg/failure.h"
#include "tools/qamreg/registry_edit.h"
#include "tools/qamreg/value_data.h"

namespace fs = std::filesystem;

namespace {

constexpr char GUARDED_FILE_ROOT[] = "GuardedFileRoot";
constexpr char GUARDED_DATA_ROOT[] = "GuardedDataRoot";  // the "DataRoot" that the guard added
constexpr char SETTINGS_FILE[] = "/etc/em-talvor/guard.conf";

std::string EndedBySlash(const std::string& directory) {
  return directory.ends_with('/') ? directory : directory + "/";
}

bool IsGuard(const std::string& directory) {
  std::error_code error;
  return EndedBySlash(directory) == EndedBySlash(GuardDirectory()) ||
         fs::equivalent(directory, GuardDirectory(), error);
}

// The values of the Setup key that the guard uses.
class CSetupKey {
 public:
  // Opens the Setup key in `registry`. Throws CHostError.
  explicit CSetupKey(CRegistry& registry) : m_oRegistry(registry) {
    std::string rootKey;
    if (!ReadRegistryPointer(rootKey, COLLECTOR_NAME) ||
        OpenCollectorSetupKey(registry, rootKey + "\\" + SETUP_KEY) != REGISTRY_OK) {
      throw CHostError(EX_UNAVAILABLE,
                       "The registry names no collector: \"em_host doctor\" says what is missing.");
    }
    m_strPath = WithRoot(rootKey) + "\\" + SETUP_KEY;
  }

  // As qamreg takes it.
  const std::string& GetPath() const { return m_strPath; }

  std::optional<ValueData> Find(const char* name) const { return ReadValue(m_oRegistry, name); }

  std::string Text(const char* name) const {
    const std::optional<ValueData> value = Find(name);
    return value && IsText(*value) ? value->bytes : "";
  }

  void Store(const char* name, const ValueData& value) {
    if (m_oRegistry.SetValue(name, value.bytes.data(), static_cast<int32_t>(value.bytes.size()),
                             value.type) == 0) {
      throw CHostError(EX_CANTCREAT,
                       std::string("The registry does not take the value ") + name + ".");
    }
  }

  void Remove(const char* name) { m_oRegistry.DeleteValue(name); }

  static bool IsText(const ValueData& value) {
    return value.type == REG_SZ || value.type == REG_EXPAND_SZ;
  }

 private:
  // The pointer may leave out HKEY_LOCAL_MACHINE.
  static std::string WithRoot(const std::string& rootKey) {
    const std::string first = ToUpperRegistryName(CRegistryPath(rootKey).Next());
    const bool hasRoot =
        std::find(ROOT_KEY_NAMES.begin(), ROOT_KEY_NAMES.end(), first) != ROOT_KEY_NAMES.end();
    return hasRoot ? rootKey : "HKLM\\" + rootKey;
  }

  CRegistry& m_oRegistry;
  std::string m_strPath;
};

// The directory that guard.conf names, which takes precedence over the registry; empty: none.
std::string ConfiguredCollector() {
  constexpr std::string_view KEY = "COLLECTOR=";
  std::ifstream file(SETTINGS_FILE);
  std::string directory;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(KEY)) {
      directory = line.substr(KEY.size());
    }
  }
  directory.resize(directory.find_last_not_of(" \t\r") + 1);
  return directory;
}

constexpr char RESTART[] = "Restart the agent: one that runs has read the registry already.";

// Makes a change of the registry, saves it, and returns the sentences about it.
template <typename Edit>
std::vector<std::string> EditRegistry(const Edit& change) {
  try {
    CRegistryEdit edit;
    CSetupKey key(edit.Get());
    std::vector<std::string> sentences;
    if (change(key, sentences)) {
      edit.Save();
      sentences.emplace_back(RESTART);
    }
    return sentences;
  } catch (const CFailure& failure) {
    throw CHostError(geteuid() == 0 ? EX_CANTCREAT : EX_NOPERM, failure.what());
  }
}

std::string KeepAdvice(const CSetupKey& key) {
  return "set it to the collector's directory with \"qamreg add '" + key.GetPath() +
         "' -v FileRoot -d DIRECTORY\".";
}

bool Put(CSetupKey& key, std::vector<std::string>& sentences) {
  const std::optional<ValueData> fileRoot = key.Find(FILE_ROOT_VALUE);
  if (!fileRoot || !CSetupKey::IsText(*fileRoot) || fileRoot->bytes.empty()) {
    throw CHostError(EX_UNAVAILABLE, "FileRoot in the registry key " + key.GetPath() +
                                         " names no directory: " + KeepAdvice(key));
  }
  if (IsGuard(fileRoot->bytes)) {
    if (key.Text(GUARDED_FILE_ROOT).empty()) {
      throw CHostError(EX_UNAVAILABLE,
                       "FileRoot names the guard, and where the collector is was not kept: " +
                           KeepAdvice(key) + " Then put the guard before it.");
    }
    sentences.push_back("The guard is on already, before the collector in " +
                        key.Text(GUARDED_FILE_ROOT) + ".");
    return false;
  }
  const std::string program = EndedBySlash(fileRoot->bytes) + COLLECTOR_NAME;
  if (access(program.c_str(), X_OK) != 0) {
    throw CHostError(EX_UNAVAILABLE, "There is no collector " + program +
                                         " that could be guarded: \"em_host doctor\" says more.");
  }
  key.Store(GUARDED_FILE_ROOT, *fileRoot);
  key.Store(FILE_ROOT_VALUE, {REG_SZ, GuardDirectory()});
  if (!key.Find(DATA_ROOT_VALUE)) {
    key.Store(DATA_ROOT_VALUE, *fileRoot);
    key.Store(GUARDED_DATA_ROOT, *fileRoot);
  }
  sentences.push_back("The guard is on, before the collector in " + fileRoot->bytes + ".");
  return true;
}

// Removes "DataRoot" if the guard added it and it has not been changed since.
void RestoreDataRoot(CSetupKey& key, std::vector<std::string>& sentences) {
  const std::string brought = key.Text(GUARDED_DATA_ROOT);
  if (!key.Find(GUARDED_DATA_ROOT)) {
    return;
  }
  key.Remove(GUARDED_DATA_ROOT);
  if (key.Text(DATA_ROOT_VALUE) == brought) {
    key.Remove(DATA_ROOT_VALUE);
    return;
  }
  sentences.push_back("DataRoot was changed by hand to " + key.Text(DATA_ROOT_VALUE) +
                      " since the guard was put there, and stays so.");
}

bool TakeAway(CSetupKey& key, std::vector<std::string>& sentences) {
  const std::string fileRoot = key.Text(FILE_ROOT_VALUE);
  const std::optional<ValueData> guarded = key.Find(GUARDED_FILE_ROOT);
  if (!guarded && IsGuard(fileRoot)) {
    throw CHostError(
        EX_UNAVAILABLE,
        "FileRoot names the guard, and where the collector is was not kept: " + KeepAdvice(key));
  }
  if (!guarded) {
    sentences.emplace_back("The guard is off already.");
    return false;
  }
  if (IsGuard(fileRoot)) {
    key.Store(FILE_ROOT_VALUE, *guarded);
    sentences.push_back("The guard is off; the module starts the collector in " + guarded->bytes +
                        " itself.");
  } else {
    sentences.push_back("FileRoot was changed by hand to " + fileRoot +
                        " since the guard was put there, and stays so; it was " + guarded->bytes +
                        " before the guard. The guard is off.");
  }
  key.Remove(GUARDED_FILE_ROOT);
  RestoreDataRoot(key, sentences);
  const std::string configured = ConfiguredCollector();
  if (!configured.empty() && EndedBySlash(configured) != EndedBySlash(guarded->bytes)) {
    sentences.push_back(std::string("COLLECTOR in ") + SETTINGS_FILE + " names " + configured +
                        ", which the guard has started instead of the one in " + guarded->bytes +
                        ".");
  }
  return true;
}

// The checksum that the guard has laid beside the archive would be taken for one of the next.
void RemoveChecksum(std::vector<std::string>& sentences) {
  std::string file;
  std::error_code error;
  if (GetDataDir(file) && fs::remove(file.append(ARCHIVE_FILE).append(CHECKSUM_ENDING), error)) {
    sentences.push_back(file + " is removed: without the guard it would not be renewed.");
  }
}

}  // namespace

std::string GuardDirectory() {
  return fs::path(InstalledFile("lib/em-talvor/guard/Talvor")).parent_path();
}

GuardPlace FindGuardPlace() {
  CRegistry registry;
  const CSetupKey key(registry);
  GuardPlace place;
  place.fileRoot = key.Text(FILE_ROOT_VALUE);
  place.isOn = IsGuard(place.fileRoot);
  place.collector = place.fileRoot;
  if (place.isOn) {
    const std::string configured = ConfiguredCollector();
    place.collector = configured.empty() ? key.Text(GUARDED_FILE_ROOT) : configured;
  }
  return place;
}

std::vector<std::string> PutGuard() { return EditRegistry(Put); }

std::vector<std::string> TakeGuardAway() {
  std::vector<std::string> sentences = EditRegistry(TakeAway);
  RemoveChecksum(sentences);
  return sentences;
}
