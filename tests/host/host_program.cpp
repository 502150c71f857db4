#include "tests/host/host_program.h"

#include <filesystem>
#include <fstream>

#include "archive_module/names.h"
#include "platform/registry/registry_file.h"
#include "tests/support/built_files.h"
#include "tests/support/installed_registry.h"

HostProgramTest::HostProgramTest()
    : m_strArchive(m_oFiles.Path(ARCHIVE_FILE)), m_strBmc(m_oFiles.Path("bmc")) {
  std::filesystem::create_directory(m_strBmc);
}

HostProgramTest::~HostProgramTest() { std::filesystem::remove_all(REGISTRY_DIRECTORY); }

void HostProgramTest::InstallCollector(const std::string& commands) {
  m_oFiles.WriteScript(COLLECTOR_NAME, commands);
  WriteRegistry(m_oFiles.Path(), m_oFiles.Path());
}

void HostProgramTest::WriteRegistry(const std::string& fileRoot, const std::string& dataRoot) {
  std::filesystem::create_directories(REGISTRY_DIRECTORY);
  std::ofstream(REGISTRY_FILE) << InstalledRegistry(SetupValues(fileRoot, dataRoot));
}

std::vector<std::string> HostProgramTest::Command(const std::string& command,
                                                  const std::vector<std::string>& arguments) {
  std::vector<std::string> line = {EM_HOST, command, "--module", EM_TALVOR_LIBRARY};
  line.insert(line.end(), arguments.begin(), arguments.end());
  return line;
}

HostResult HostProgramTest::Host(const std::string& command,
                                 const std::vector<std::string>& arguments) {
  Program program(Command(command, arguments));
  const int exitCode = program.Wait();
  return {exitCode, program.Output(), program.Errors()};
}
