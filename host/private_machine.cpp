#include "host/private_machine.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>

#include "archive_module/names.h"
#include "host/host_error.h"
#include "host/installation.h"
#include "platform/registry/registry.h"
#include "platform/registry/registry_file.h"

namespace fs = std::filesystem;

namespace {

constexpr char SANDBOX[] = "lib/em-talvor/sandbox";
constexpr char SANDBOX_MARK[] = "EM_TALVOR_SANDBOX";  // set for what runs in the sandbox
constexpr char ROOT_KEY[] = "SOFTWARE\\Talvor";

[[noreturn]] void ThrowCannotMake(const std::string& path, const std::error_code& error) {
  throw CHostError(EX_CANTCREAT, path + " cannot be made (" + error.message() +
                                     "): check the space below /tmp and /var.");
}

void MakeDirectory(const std::string& path) {
  std::error_code error;
  fs::create_directories(path, error);
  if (error) {
    ThrowCannotMake(path, error);
  }
}

// Overwrites a file that is there, whose mode stays.
void WriteFile(const fs::path& path, const std::string& text) {
  if (!(std::ofstream(path) << text << std::flush)) {
    ThrowCannotMake(path, std::error_code(errno, std::generic_category()));
  }
}

void CheckCollector(const std::string& collector) {
  std::error_code error;
  if (!fs::is_regular_file(collector, error) || access(collector.c_str(), R_OK | X_OK) != 0) {
    throw CHostError(EX_USAGE, "The collector " + collector +
                                   " is no program that can be run: name another with "
                                   "--collector FILE.");
  }
}

// The mark alone is no proof: a machine with the product's paths is not a private one.
void CheckMachineIsEmpty() {
  for (const std::string path :
       {"/etc/qamrel", "/etc/orvane", "/etc/em-talvor", COLLECTOR_DIRECTORY}) {
    std::error_code error;
    if (fs::exists(fs::symlink_status(path, error))) {
      throw CHostError(EX_OSERR, "The demo found " + path +
                                     " and changes nothing: start it outside "
                                     "of a sandbox, so that it makes one of its own.");
    }
  }
}

void StoreText(CRegistry& registry, const char* name, const char* text) {
  if (registry.SetValue(name, text) != REGISTRY_OK) {
    throw CHostError(EX_CANTCREAT,
                     std::string("The registry does not take the value ") + name + ".");
  }
}

}  // namespace

void EnterPrivateMachine(char** arguments) {
  if (getenv(SANDBOX_MARK) != nullptr) {
    CheckMachineIsEmpty();
    return;
  }
  std::string sandbox = InstalledFile(SANDBOX);
  std::string program = fs::read_symlink("/proc/self/exe");
  std::vector<char*> command = {sandbox.data(), program.data()};
  for (char** argument = arguments + 1; *argument != nullptr; ++argument) {
    command.push_back(*argument);
  }
  command.push_back(nullptr);
  execv(sandbox.c_str(), command.data());
  throw CHostError(EX_OSERR, sandbox + " cannot be run (" + strerror(errno) +
                                 "): check its rights, and that bash is installed.");
}

void InstallDemoCollector(const std::string& collector) {
  CheckCollector(collector);
  for (const char* directory : {DEMO_FILE_ROOT, DEMO_DATA_ROOT, DEMO_BMC}) {
    MakeDirectory(directory);
  }
  const fs::path target = fs::path(DEMO_FILE_ROOT) / COLLECTOR_NAME;
  std::error_code error;
  fs::copy_file(collector, target, error);
  if (error) {
    ThrowCannotMake(target, error);
  }
}

void InstallDemoGuard() {
  WriteFile(fs::path(DEMO_FILE_ROOT) / COLLECTOR_NAME, "#!/bin/sh\nsleep 1000\n");
  MakeDirectory("/etc/em-talvor");
  WriteFile("/etc/em-talvor/guard.conf", "RUN_TIME=2\nSTOP_TIME=1\nFREE_SPACE=0\n");
}

void WriteDemoRegistry() {
  MakeDirectory(REGISTRY_DIRECTORY);
  {
    CRegistry registry;
    registry.CreateKey(HKEY_LOCAL_MACHINE, REGISTRY_POINTER_KEY);
    StoreText(registry, COLLECTOR_NAME, ROOT_KEY);
    registry.CreateKey(HKEY_LOCAL_MACHINE, (std::string(ROOT_KEY) + "\\" + SETUP_KEY).c_str());
    StoreText(registry, FILE_ROOT_VALUE, DEMO_FILE_ROOT);
    StoreText(registry, DATA_ROOT_VALUE, DEMO_DATA_ROOT);
  }
  std::error_code error;
  if (!fs::exists(REGISTRY_FILE, error)) {
    throw CHostError(EX_CANTCREAT, std::string("The registry ") + REGISTRY_FILE +
                                       " was not saved: check the space below /etc.");
  }
}
