#include "host/collector_check.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "archive_module/collector_paths.h"
#include "archive_module/names.h"
#include "base/regular_file.h"
#include "platform/process/process_table.h"
#include "platform/registry/registry.h"
#include "platform/registry/registry_file.h"
#include "platform/registry/registry_node.h"
#include "platform/registry/registry_parser.h"

namespace {

constexpr uint64_t MEGABYTE = 1'048'576;
constexpr uint64_t LEAST_SPACE = 64 * MEGABYTE;

// The registry is loaded from the first of these that can be read.
constexpr std::array<const char*, 3> REGISTRY_FILES = {REGISTRY_FILE, REGISTRY_BACKUP_FILE,
                                                       REGISTRY_DEFAULT_FILE};

std::string WithSlash(const std::string& directory) {
  return directory.ends_with('/') ? directory : directory + "/";
}

std::string ErrorText() { return strerror(errno); }

// As the registry is loaded. Throws std::bad_alloc.
bool HoldsRegistry(const char* file) {
  std::string text;
  CRegistryNode node;
  return ReadRegularFile(file, text) && ParseRegistryText(text, node);
}

// Why none of the registry files can be loaded, told by the first that is there.
std::string ExplainRegistry() {
  for (const char* file : REGISTRY_FILES) {
    if (access(file, R_OK) == 0) {
      return std::string("The file ") + file +
             " holds no registry: repair it, or install the agent and Talvor again.";
    }
    if (errno == ENOENT) {
      continue;
    }
    if (errno == EACCES) {
      return std::string("The registry ") + file + " may not be read: run em_host as root.";
    }
    return std::string("The registry ") + file + " cannot be read (" + ErrorText() +
           "): repair its directory " + REGISTRY_DIRECTORY + ".";
  }
  return std::string("There is no registry ") + REGISTRY_FILE +
         ": install the agent and Talvor, or see the whole path with \"em_host demo\".";
}

}  // namespace

void CCollectorCheck::CheckInstallation() {
  if (!CheckRegistry()) {
    AddUnknown("pointer", "needs the registry");
  } else {
    CheckPointer();
  }
  if (m_strSetupKey.empty()) {
    AddUnknown("Setup key", "needs the pointer");
    AddUnknown(FILE_ROOT_VALUE, "needs the Setup key");
    AddUnknown(DATA_ROOT_VALUE, "needs the Setup key");
  } else if (CheckSetupKey()) {
    CheckFileRoot();
    CheckDataRoot();
  } else {
    AddUnknown(FILE_ROOT_VALUE, "needs the Setup key");
    AddUnknown(DATA_ROOT_VALUE, "needs the Setup key");
  }
  if (m_strFileRoot.empty()) {
    AddUnknown("program", std::string("needs ") + FILE_ROOT_VALUE);
  } else {
    CheckProgram();
  }
}

void CCollectorCheck::CheckCreation() {
  if (m_strDataDirectory.empty()) {
    AddUnknown("data directory", std::string("needs ") + DATA_ROOT_VALUE);
    AddUnknown("free space", std::string("needs ") + DATA_ROOT_VALUE);
  } else if (CheckDataDirectory()) {
    CheckFreeSpace();
  } else {
    AddUnknown("free space", "needs the data directory");
  }
  CheckOtherCollector();
}

bool CCollectorCheck::CheckRegistry() {
  std::string damaged;  // the first file that is passed over
  for (const char* file : REGISTRY_FILES) {
    if (HoldsRegistry(file)) {
      return Add(true, "registry",
                 damaged.empty() ? std::string(file) + " can be read."
                                 : std::string(file) + " stands in for " + damaged +
                                       ", which holds no registry: repair that one.");
    }
    const bool isThere = access(file, R_OK) == 0;
    if (!isThere && errno == EACCES) {
      break;  // root may read it, and will
    }
    if (isThere && damaged.empty()) {
      damaged = file;
    }
  }
  return Add(false, "registry", ExplainRegistry());
}

bool CCollectorCheck::CheckPointer() {
  std::string rootKey;
  if (!ReadRegistryPointer(rootKey, COLLECTOR_NAME)) {
    return Add(false, "pointer",
               std::string("Talvor is not installed: the registry has no value \"") +
                   COLLECTOR_NAME + "\" in the key HKEY_LOCAL_MACHINE\\" + REGISTRY_POINTER_KEY +
                   ". Install Talvor.");
  }
  m_strSetupKey = rootKey + "\\Setup";
  return Add(true, "pointer", "It names the key " + rootKey + ".");
}

bool CCollectorCheck::CheckSetupKey() {
  CRegistry registry;
  if (OpenCollectorSetupKey(registry, m_strSetupKey) != REGISTRY_OK) {
    return Add(false, "Setup key",
               "Talvor is not installed completely: the registry has no key " + m_strSetupKey +
                   ". Install Talvor again.");
  }
  return Add(true, "Setup key", "The key " + m_strSetupKey + " is there.");
}

bool CCollectorCheck::CheckFileRoot() {
  CRegistry registry;
  OpenCollectorSetupKey(registry, m_strSetupKey);
  std::string directory;
  if (registry.QueryValue(directory, FILE_ROOT_VALUE) != REGISTRY_OK) {
    return Add(false, FILE_ROOT_VALUE,
               "Talvor is not installed completely: the registry key " + m_strSetupKey +
                   " has no text \"FileRoot\" that names its directory. Install Talvor again.");
  }
  m_strFileRoot = WithSlash(directory);
  return Add(true, FILE_ROOT_VALUE, "It names " + m_strFileRoot + ".");
}

void CCollectorCheck::CheckDataRoot() {
  CRegistry registry;
  OpenCollectorSetupKey(registry, m_strSetupKey);
  std::string directory;
  if (registry.QueryValue(directory, DATA_ROOT_VALUE) == REGISTRY_OK) {
    if (directory.empty()) {
      Add(false, DATA_ROOT_VALUE,
          "It is empty, and the archive would go wherever the agent was started: name a directory "
          "in \"DataRoot\" of the registry key " +
              m_strSetupKey + ".");
      return;
    }
    m_strDataDirectory = WithSlash(directory);
    Add(true, DATA_ROOT_VALUE, "It names " + m_strDataDirectory + ".");
  } else if (m_strFileRoot.empty()) {
    AddUnknown(DATA_ROOT_VALUE, "is not there, and FileRoot, which stands in for it, neither");
  } else {
    m_strDataDirectory = m_strFileRoot;
    Add(true, DATA_ROOT_VALUE, "It is not there; FileRoot stands in for it.");
  }
}

void CCollectorCheck::CheckProgram() {
  const std::string program = m_strFileRoot + COLLECTOR_NAME;
  struct stat file = {};
  if (stat(program.c_str(), &file) != 0 && errno != EACCES) {
    Add(false, "program",
        "Talvor is registered, but there is no program " + program +
            ": install Talvor again, or correct \"FileRoot\" in the registry key " + m_strSetupKey +
            ".");
  } else if (!S_ISREG(file.st_mode) || access(program.c_str(), X_OK) != 0) {
    Add(false, "program",
        program +
            " cannot be executed: give it the rights of a program (chmod 755), or install "
            "Talvor again.");
  } else {
    Add(true, "program", program + " can be executed.");
  }
}

bool CCollectorCheck::CheckDataDirectory() {
  struct stat directory = {};
  if (stat(m_strDataDirectory.c_str(), &directory) != 0) {
    return Add(false, "data directory",
               m_strDataDirectory + " cannot be reached (" + ErrorText() +
                   "): make the directory, or correct \"DataRoot\" in the registry key " +
                   m_strSetupKey + ".");
  }
  if (access(m_strDataDirectory.c_str(), W_OK | X_OK) != 0) {
    return Add(false, "data directory",
               m_strDataDirectory + " cannot be written to (" + ErrorText() +
                   "): run em_host as root, or make the directory writable.");
  }
  return Add(true, "data directory", m_strDataDirectory + " can be written to.");
}

void CCollectorCheck::CheckFreeSpace() {
  struct statvfs system = {};
  if (statvfs(m_strDataDirectory.c_str(), &system) != 0) {
    Add(false, "free space",
        "It cannot be determined (" + ErrorText() + "): look at the file system of " +
            m_strDataDirectory + ".");
    return;
  }
  const uint64_t free = static_cast<uint64_t>(system.f_bavail) * system.f_frsize;
  const std::string text = std::to_string(free / MEGABYTE) + " MB";
  if (free < LEAST_SPACE) {
    Add(false, "free space",
        "Only " + text + " are left in " + m_strDataDirectory +
            ": an archive may not fit into less than " + std::to_string(LEAST_SPACE / MEGABYTE) +
            " MB. Make room.");
  } else {
    Add(true, "free space", text + " are left.");
  }
}

void CCollectorCheck::CheckOtherCollector() {
  int32_t pid = 0;
  if (FindProcessByName(pid, COLLECTOR_NAME)) {
    Add(false, "other collector",
        "A process named Talvor is running, number " + std::to_string(pid) +
            ": wait until it has ended, or end it.");
  } else {
    Add(true, "other collector", "None is running.");
  }
}

bool CCollectorCheck::Add(bool isRight, const std::string& subject, const std::string& text) {
  m_oFindings.push_back(
      {isRight ? Finding::Verdict::RIGHT : Finding::Verdict::WRONG, subject, text});
  return isRight;
}

void CCollectorCheck::AddUnknown(const std::string& subject, const std::string& text) {
  m_oFindings.push_back({Finding::Verdict::UNKNOWN, subject, text});
}

std::string ExplainUnavailability() {
  CCollectorCheck check;
  check.CheckInstallation();
  for (const Finding& finding : check.GetFindings()) {
    if (finding.verdict == Finding::Verdict::WRONG) {
      return finding.text;
    }
  }
  return "The module reports that it is not started, and nothing is seen to be missing: look at its "
         "trace with --trace 3.";
}
