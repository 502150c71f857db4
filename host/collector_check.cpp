#include "host/collector_check.h"

#include <glob.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "archive_module/collector_files.h"
#include "archive_module/names.h"
#include "base/regular_file.h"
#include "host/doctor_checks.h"
#include "host/installation.h"
#include "platform/process/process_table.h"
#include "platform/registry/registry.h"
#include "platform/registry/registry_file.h"
#include "platform/registry/registry_node.h"
#include "platform/registry/registry_text.h"

namespace {

using Verdict = Finding::Verdict;

constexpr uint64_t MEGABYTE = 1'048'576;
constexpr uint64_t LEAST_SPACE = 64 * MEGABYTE;

// The registry is loaded from the first of these that holds one.
constexpr std::array<const char*, 3> REGISTRY_FILES = {REGISTRY_FILE, REGISTRY_BACKUP_FILE,
                                                       REGISTRY_DEFAULT_FILE};

std::string WithSlash(const std::string& directory) {
  return directory.ends_with('/') ? directory : directory + "/";
}

std::string ErrorText() { return strerror(errno); }

bool IsProgram(const std::string& file) {
  struct stat status = {};
  return stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         access(file.c_str(), X_OK) == 0;
}

// True when the registry could be loaded from the file. Throws std::bad_alloc.
bool HoldsRegistry(const char* file) {
  std::string text;
  CRegistryNode node;
  return ReadRegularFile(file, text, LONGEST_REGISTRY_FILE) && ParseRegistryText(text, node);
}

// The directory of a collector that the registry does not know; empty when none is found. Looks in
// PATH and where third-party software is usually installed.
std::string FindUnregisteredCollector() {
  const char* path = getenv("PATH");
  std::string directories = path != nullptr ? path : "";
  std::replace(directories.begin(), directories.end(), ':', ',');
  const std::string pattern = "{/opt/*,/opt/*/bin,/usr/lib/*,/usr/local/*," + directories + "}/";
  glob_t found = {};
  std::string directory;
  if (glob((pattern + COLLECTOR_NAME).c_str(), GLOB_BRACE, nullptr, &found) == 0) {
    for (size_t index = 0; directory.empty() && index < found.gl_pathc; ++index) {
      const std::string file = found.gl_pathv[index];
      if (IsProgram(file) && !IsSampleCollector(file)) {
        directory = file.substr(0, file.rfind('/'));
      }
    }
  }
  globfree(&found);
  return directory;
}

std::string ExplainMissingPointer() {
  const std::string directory = FindUnregisteredCollector();
  if (!directory.empty()) {
    return directory + "/" + COLLECTOR_NAME +
           " is there, only the registry does not know it: make the entries with \"qamreg pointer "
           "Talvor HKLM/SOFTWARE/Talvor\" and \"qamreg add HKLM/SOFTWARE/Talvor/Setup -v FileRoot "
           "-d " +
           directory + "\", and see operations.md in /usr/share/doc/em-talvor.";
  }
  return std::string("Talvor is not installed: the registry has no value \"") + COLLECTOR_NAME +
         "\" in the key HKEY_LOCAL_MACHINE\\" + REGISTRY_POINTER_KEY + ". Install Talvor.";
}

// Why none of the registry files can be loaded: what is wrong with the first that exists.
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

std::string NearestDirectory(std::string directory) {
  while (directory.size() > 1) {
    struct stat status = {};
    const std::string name = directory.substr(0, directory.size() - 1);
    if (lstat(name.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR)) {
      return directory;
    }
    directory.resize(name.rfind('/') + 1);
  }
  return directory;
}

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
  std::string damaged;  // the first file that is skipped
  for (const char* file : REGISTRY_FILES) {
    if (HoldsRegistry(file)) {
      if (damaged.empty()) {
        return Add(Verdict::RIGHT, "registry", std::string(file) + " can be read.");
      }
      return Add(Verdict::WARNING, "registry",
                 std::string(file) + " stands in for " + damaged +
                     ", which holds no registry: repair that one.");
    }
    const bool isThere = access(file, R_OK) == 0;
    if (!isThere && errno == EACCES) {
      break;  // the agent, as root, will read it
    }
    if (isThere && damaged.empty()) {
      damaged = file;
    }
  }
  return Add(Verdict::WRONG, "registry", ExplainRegistry());
}

bool CCollectorCheck::CheckPointer() {
  std::string rootKey;
  if (!ReadRegistryPointer(rootKey, COLLECTOR_NAME)) {
    return Add(Verdict::WRONG, "pointer", ExplainMissingPointer());
  }
  CRegistry registry;
  if (OpenCollectorSetupKey(registry, rootKey) != REGISTRY_OK) {
    return Add(Verdict::WRONG, "pointer",
               "It names the key " + rootKey +
                   ", which the registry does not have: correct it with \"qamreg pointer " +
                   COLLECTOR_NAME + " KEY\", or install Talvor again.");
  }
  m_strSetupKey = rootKey + "\\Setup";
  return Add(Verdict::RIGHT, "pointer", "It names the key " + rootKey + ".");
}

bool CCollectorCheck::CheckSetupKey() {
  CRegistry registry;
  if (OpenCollectorSetupKey(registry, m_strSetupKey) != REGISTRY_OK) {
    return Add(Verdict::WRONG, "Setup key",
               "Talvor is not installed completely: the registry has no key " + m_strSetupKey +
                   ". Install Talvor again.");
  }
  return Add(Verdict::RIGHT, "Setup key", "The key " + m_strSetupKey + " is there.");
}

bool CCollectorCheck::CheckFileRoot() {
  CRegistry registry;
  OpenCollectorSetupKey(registry, m_strSetupKey);
  std::string directory;
  if (registry.QueryValue(directory, FILE_ROOT_VALUE) != REGISTRY_OK) {
    return Add(Verdict::WRONG, FILE_ROOT_VALUE,
               "Talvor is not installed completely: the registry key " + m_strSetupKey +
                   " has no text \"FileRoot\" that names its directory. Install Talvor again.");
  }
  if (!directory.starts_with('/')) {
    return Add(
        Verdict::WRONG, FILE_ROOT_VALUE,
        "It names \"" + directory +
            "\", and Talvor would be looked for below wherever the agent was started: name a "
            "full path in \"FileRoot\" of the registry key " +
            m_strSetupKey + ".");
  }
  m_strFileRoot = WithSlash(directory);
  return Add(Verdict::RIGHT, FILE_ROOT_VALUE, "It names " + m_strFileRoot + ".");
}

void CCollectorCheck::CheckDataRoot() {
  CRegistry registry;
  OpenCollectorSetupKey(registry, m_strSetupKey);
  std::string directory;
  if (registry.QueryValue(directory, DATA_ROOT_VALUE) == REGISTRY_OK) {
    if (directory.empty()) {
      Add(Verdict::WRONG, DATA_ROOT_VALUE,
          "It is empty, and the archive would go wherever the agent was started: name a directory "
          "in \"DataRoot\" of the registry key " +
              m_strSetupKey + ".");
      return;
    }
    if (!directory.starts_with('/')) {
      Add(Verdict::WRONG, DATA_ROOT_VALUE,
          "It names \"" + directory +
              "\", and the archive would go below wherever the agent was started: name a full path "
              "in \"DataRoot\" of the registry key " +
              m_strSetupKey + ".");
      return;
    }
    m_strDataDirectory = WithSlash(directory);
    Add(Verdict::RIGHT, DATA_ROOT_VALUE, "It names " + m_strDataDirectory + ".");
  } else if (m_strFileRoot.empty()) {
    AddUnknown(DATA_ROOT_VALUE, "is not there, and FileRoot, which stands in for it, neither");
  } else {
    m_strDataDirectory = m_strFileRoot;
    Add(Verdict::RIGHT, DATA_ROOT_VALUE, "It is not there; FileRoot stands in for it.");
  }
}

void CCollectorCheck::CheckProgram() {
  const std::string program = m_strFileRoot + COLLECTOR_NAME;
  struct stat file = {};
  if (stat(program.c_str(), &file) != 0 && errno != EACCES) {
    Add(Verdict::WRONG, "program",
        "Talvor is registered, but there is no program " + program +
            ": install Talvor again, or correct \"FileRoot\" in the registry key " + m_strSetupKey +
            ".");
  } else if (!IsProgram(program)) {
    Add(Verdict::WRONG, "program",
        program +
            " cannot be executed: give it the rights of a program (chmod 755), or install "
            "Talvor again.");
  } else {
    Add(Verdict::RIGHT, "program", program + " can be executed.");
  }
}

bool CCollectorCheck::CheckDataDirectory() {
  const std::string existing = NearestDirectory(m_strDataDirectory);
  struct stat directory = {};
  if (stat(existing.c_str(), &directory) != 0) {
    return Add(Verdict::WRONG, "data directory",
               existing + " cannot be reached (" + ErrorText() +
                   "): repair it, or correct \"DataRoot\" in the registry key " + m_strSetupKey +
                   ".");
  }
  if (access(existing.c_str(), W_OK | X_OK) != 0) {
    return Add(Verdict::WRONG, "data directory",
               existing + " cannot be written to (" + ErrorText() +
                   "): run em_host as root, or make the directory writable.");
  }
  return Add(
      Verdict::RIGHT, "data directory",
      existing == m_strDataDirectory
          ? m_strDataDirectory + " can be written to."
          : m_strDataDirectory + " is not there yet; Talvor can make it in " + existing + ".");
}

void CCollectorCheck::CheckFreeSpace() {
  struct statvfs system = {};
  const std::string directory = NearestDirectory(m_strDataDirectory);
  if (statvfs(directory.c_str(), &system) != 0) {
    Add(Verdict::WRONG, "free space",
        "It cannot be determined (" + ErrorText() + "): look at the file system of " + directory +
            ".");
    return;
  }
  const uint64_t free = static_cast<uint64_t>(system.f_bavail) * system.f_frsize;
  const std::string text = std::to_string(free / MEGABYTE) + " MB";
  if (free < LEAST_SPACE) {
    Add(Verdict::WRONG, "free space",
        "Only " + text + " are left in " + directory + ": an archive may not fit into less than " +
            std::to_string(LEAST_SPACE / MEGABYTE) + " MB. Make room.");
  } else {
    Add(Verdict::RIGHT, "free space", text + " are left.");
  }
}

void CCollectorCheck::CheckOtherCollector() {
  int32_t pid = 0;
  if (FindProcessByName(pid, COLLECTOR_NAME)) {
    Add(Verdict::WRONG, "other collector",
        "A process named Talvor is running, number " + std::to_string(pid) +
            ": wait until it has ended, or end it.");
  } else {
    Add(Verdict::RIGHT, "other collector", "None is running.");
  }
}

bool CCollectorCheck::Add(Verdict verdict, const std::string& subject, const std::string& text) {
  m_oFindings.push_back({verdict, subject, text});
  return verdict != Verdict::WRONG;
}

void CCollectorCheck::AddUnknown(const std::string& subject, const std::string& text) {
  m_oFindings.push_back({Verdict::UNKNOWN, subject, text});
}

Findings CheckCollector(const HostOptions& /*options*/) {
  CCollectorCheck check;
  check.CheckInstallation();
  check.CheckCreation();
  return check.GetFindings();
}

std::string ExplainUnavailability() {
  CCollectorCheck check;
  check.CheckInstallation();
  for (const Finding& finding : check.GetFindings()) {
    if (finding.verdict == Verdict::WRONG) {
      return finding.text;
    }
  }
  return "The module reports that it is not started, and nothing is seen to be missing: look at its "
         "trace with --trace 3.";
}
