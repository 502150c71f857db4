#include "tools/qamreg/registry_edit.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <set>

#include "platform/registry_node.h"
#include "platform/registry_parser.h"
#include "platform/registry_path.h"
#include "platform/registry_paths.h"
#include "tools/qamreg/failure.h"
#include "tools/qamreg/text_file.h"

namespace {

constexpr char LOCK_FILE[] = "/etc/qamrel/registry.lock";
constexpr mode_t DIRECTORY_MODE = 0755;
// Nobody else can keep the administrator waiting.
constexpr mode_t LOCK_MODE = 0600;

[[noreturn]] void ThrowNoChange(int error) {
  const bool isForbidden = error == EACCES || error == EPERM;
  throw CFailure(EXIT_FAILED, std::string("The registry cannot be changed: ") + LOCK_FILE + ": " +
                                  std::strerror(error) + "." +
                                  (isForbidden ? " Run the command as root."
                                               : std::string(" Check the directory ") +
                                                     REGISTRY_DIRECTORY + "."));
}

int TakeLock() {
  if (mkdir(REGISTRY_DIRECTORY, DIRECTORY_MODE) != 0 && errno != EEXIST) {
    ThrowNoChange(errno);
  }
  const int lock = open(LOCK_FILE, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, LOCK_MODE);
  if (lock < 0) {
    ThrowNoChange(errno);
  }
  while (flock(lock, LOCK_EX) != 0) {
    if (errno != EINTR) {
      ThrowNoChange(errno);
    }
  }
  CheckRegistryFile();
  return lock;
}

bool IsMissing(const char* path) {
  struct stat status = {};
  return stat(path, &status) != 0 && errno == ENOENT;
}

bool IsKey(CRegistry& registry, const std::string& path) {
  return registry.Open(path.c_str(), nullptr) == REGISTRY_OK;
}

// Of the keys around a missing one the innermost that is there.
CKeyPath ClosestKey(CRegistry& registry, CKeyPath path) {
  while (!path.IsRoot() && !IsKey(registry, path.Text())) {
    path = CKeyPath(path.ParentText());
  }
  return path;
}

// Values may have names that a key cannot have.
bool CanBeKeyName(const std::string& name) {
  return !name.empty() && FindRegistrySeparator(name) == std::string::npos;
}

// All keys of the contents and those around them, but for the root keys.
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

CRegistryEdit::CRegistryEdit() : m_oLock(TakeLock()) {}

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
