#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/program.h"
#include "tests/support/scratch_directory.h"

// What a run of em_host came to.
struct HostResult {
  int exitCode;
  std::string output;
  std::string errors;
};

// The base of tests that run the built em_host on the built module. The collector is a shell script
// of the test; everything lies in a scratch directory, but for the registry, which the sandbox
// keeps apart.
class HostProgramTest : public testing::Test {
 protected:
  HostProgramTest();
  ~HostProgramTest() override;

  // Installs a collector. Its commands run where "$D" is the scratch directory;
  // "$D/Talvor_Data.zip" is the archive.
  void InstallCollector(const std::string& commands);
  static void WriteRegistry(const std::string& fileRoot, const std::string& dataRoot);

  // The command line of em_host with a command, for the built module, and its arguments.
  static std::vector<std::string> Command(const std::string& command,
                                          const std::vector<std::string>& arguments);
  // Runs that command line to its end.
  static HostResult Host(const std::string& command, const std::vector<std::string>& arguments);

  ScratchDirectory m_oFiles;
  std::string m_strArchive;
  std::string m_strBmc;  // an empty directory
};
