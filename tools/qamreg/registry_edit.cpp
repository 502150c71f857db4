#include "tools/qamreg/registry_edit.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <set>

#include "base/flush_directory.h"
#include "base/regular_file.h"
#include "platform/registry/registry_file.h"
#include "platform/registry/registry_node.h"
#include "platform/registry/registry_path.h"
#include "platform/registry/registry_text.h"
#include "tools/qamreg/failure.h"
#include "tools/qamreg/text_file.h"

namespace {

constexpr mode_t DIRECTORY_MODE = 0755;
constexpr std::chrono::seconds SILENT_WAIT(1);

std::string AdviceAgainst(int error) {
  if (error == EACCES || error == EPERM) {
    return "Run the command as root.";
  }
  if (error == EROFS) {
    return std::string(REGISTRY_DIRECTORY) +
           " lies in a file system that is mounted read-only: make it writable, or change the "
           "registry where the file system is made.";
  }
  return std::string("Check the directory ") + REGISTRY_DIRECTORY + ".";
}

[[noreturn]] void ThrowNoChange(int error) {
  throw CFailure(EXIT_FAILED, std::string("The registry cannot be changed: ") + REGISTRY_LOCK_FILE +
                                  ": " + std::strerror(error) + ". " + AdviceAgainst(error));
}

bool IsMissing(const char* path) {
  struct stat status = {};
  return stat(path, &status) != 0 && errno == ENOENT;
}

bool IsKey(CRegistry& registry, const std::string& path) {
  return registry.Open(path.c_str(), nullptr) == REGISTRY_OK;
}

// The innermost existing key above a missing one.
CKeyPath ClosestKey(CRegistry& registry, CKeyPath path) {
  while (!path.IsRoot() && !IsKey(registry, path.Text())) {
    path = CKeyPath(path.ParentText());
  }
  return path;
}

// A line that is read as several would be saved as several.
void CheckLines(const char* path, std::string_view text) {
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t length = std::min(text.find('\n'), text.size());
    if (length > REGISTRY_LINE_LENGTH) {
      throw CFailure(
          EXIT_FAILED,
          std::string(path) + ": line " + std::to_string(number) + " has " +
              std::to_string(length) + " characters, and " + std::to_string(REGISTRY_LINE_LENGTH) +
              " are the limit; what follows counts as a line of its own. Nothing was changed: "
              "shorten the line with an editor, and try again.");
    }
    text.remove_prefix(std::min(length + 1, text.size()));
  }
}

// Of the file that the registry is loaded from.
void CheckLoadedLines() {
  for (const char* path : {REGISTRY_FILE, REGISTRY_BACKUP_FILE, REGISTRY_DEFAULT_FILE}) {
    std::string text;
    if (ReadRegularFile(path, text, LONGEST_REGISTRY_FILE) && !text.empty()) {
      CheckLines(path, text);
      return;
    }
  }
}

bool IsBusy(const CRegistryLock& lock) { return lock.GetError() == EWOULDBLOCK; }

// A directory that is made survives a loss of power, as what is saved in it does.
void MakeDirectory() {
  const bool isMade = mkdir(REGISTRY_DIRECTORY, DIRECTORY_MODE) == 0;
  if (isMade ? !FlushDirectory(std::filesystem::path(REGISTRY_DIRECTORY).parent_path().c_str())
             : errno != EEXIST) {
    ThrowNoChange(errno);
  }
}

std::unique_ptr<CRegistryLock> TakeLock(std::chrono::seconds limit) {
  MakeDirectory();
  const std::chrono::seconds silence = std::min(limit, SILENT_WAIT);
  auto lock = std::make_unique<CRegistryLock>(RegistryUse::SAVE, silence);
  if (IsBusy(*lock) && limit > silence) {
    std::cerr << "qamreg: Waiting for another process, which holds " << REGISTRY_LOCK_FILE
              << " (lslocks names it).\n";
    lock = std::make_unique<CRegistryLock>(RegistryUse::SAVE, limit - silence);
  }
  if (IsBusy(*lock)) {
    throw CFailure(EXIT_FAILED, std::string("Another process has held ") + REGISTRY_LOCK_FILE +
                                    " for " + std::to_string(limit.count()) +
                                    " s. Nothing was changed: see with lslocks which one it is, or "
                                    "allow more with --wait.");
  }
  if (!lock->IsHeld()) {
    ThrowNoChange(lock->GetError());
  }
  CheckRegistryFile();
  CheckLoadedLines();
  return lock;
}

// Values may have names that a key cannot have.
bool CanBeKeyName(const std::string& name) {
  return !name.empty() && FindRegistrySeparator(name) == std::string::npos;
}

// All keys of the contents and those above them, except the root keys.
std::set<std::string> KeysOf(const std::vector<KeyContent>& contents) {
  std::set<std::string> keys;
  for (const KeyContent& content : contents) {
    for (CKeyPath path(content.path); !path.IsRoot() && keys.insert(path.Text()).second;) {
      path = CKeyPath(path.ParentText());
    }
  }
  return keys;
}

}  // namespace

void CheckRegistryFile() {
  if (IsMissing(REGISTRY_FILE)) {
    return;
  }
  const std::string text = ReadTextFile(
      REGISTRY_FILE, std::string("repair it, or put ") + REGISTRY_BACKUP_FILE + " in its place");
  CRegistryNode node;
  if (!text.empty() && !ParseRegistryText(text, node)) {
    throw CFailure(EXIT_FAILED, std::string(REGISTRY_FILE) +
                                    " holds no registry. Repair it, or put " +
                                    REGISTRY_BACKUP_FILE + " in its place.");
  }
}

void OpenExisting(CRegistry& registry, const CKeyPath& path) {
  if (registry.Open(path.Text().c_str(), nullptr) != REGISTRY_OK) {
    throw CFailure(EXIT_NOT_THERE, "There is no key " + path.Text() + ": \"qamreg query '" +
                                       ClosestKey(registry, path).Text() +
                                       "'\" shows what is there.");
  }
}

void ThrowNoValue(const std::string& name, const CKeyPath& path, bool recursive) {
  throw CFailure(EXIT_NOT_THERE, "There is no value \"" + name + "\" in the key " + path.Text() +
                                     (recursive ? " or below it" : "") + ": \"qamreg query '" +
                                     path.Text() + "'" + (recursive ? " -r" : "") +
                                     "\" shows what is there.");
}

std::chrono::seconds CRegistryEdit::s_oWaitLimit(30);

CRegistryEdit::CRegistryEdit() : m_pLock(TakeLock(s_oWaitLimit)) {}

void CRegistryEdit::CheckNames(const std::vector<KeyContent>& keys) {
  const std::set<std::string> paths = KeysOf(keys);
  for (const std::string& text : paths) {
    const CKeyPath path(text);
    if (m_oRegistry.Open(path.ParentText().c_str(), nullptr) == REGISTRY_OK &&
        ReadValue(m_oRegistry, path.Name())) {
      throw CFailure(EXIT_FAILED, "There is a value of the name \"" + path.Name() +
                                      "\", so that there can be no key " + text +
                                      ". Choose another name.");
    }
  }
  for (const KeyContent& key : keys) {
    for (const NamedValue& value : key.values) {
      const std::string path = key.path + '\\' + value.name;
      if (CanBeKeyName(value.name) && (paths.contains(path) || IsKey(m_oRegistry, path))) {
        throw CFailure(EXIT_FAILED,
                       "There is a key " + path +
                           ", so that there can be no value of that name. Choose another name.");
      }
    }
  }
}

void CRegistryEdit::Store(const std::vector<KeyContent>& keys) {
  CheckNames(keys);
  for (const KeyContent& key : keys) {
    m_oRegistry.Open("", nullptr);
    bool isStored = m_oRegistry.CreateKey(nullptr, key.path.c_str()) == REGISTRY_OK;
    for (const auto& [name, data] : key.values) {
      isStored =
          isStored && m_oRegistry.SetValue(name.c_str(), data.bytes.data(),
                                           static_cast<int32_t>(data.bytes.size()), data.type) != 0;
    }
    if (!isStored) {
      throw CFailure(EXIT_FAILED, "The key " + key.path +
                                      " could not be stored: look for free memory, and try again.");
    }
  }
}

void CRegistryEdit::Save() {
  if (m_oRegistry.Flush() != REGISTRY_OK) {
    throw CFailure(EXIT_FAILED, std::string("The registry could not be saved. Look for free space "
                                            "and for what lies in the way in ") +
                                    REGISTRY_DIRECTORY + ".");
  }
}
