#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/built_files.h"
#include "tests/support/program.h"
#include "tests/support/registry_files.h"

// Runs qamreg on the registry of the sandbox.
class QamregTest : public RegistryFilesTest {
 protected:
  struct Result {
    int exitCode;
    std::string output;
    std::string errors;
  };

  static std::vector<std::string> Command(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {QAMREG};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
  }

  static Result Run(const std::vector<std::string>& arguments) {
    Program program(Command(arguments));
    const int exitCode = program.Wait();
    return {exitCode, program.Output(), program.Errors()};
  }

  // Runs a command that says nothing, as successful changes do.
  static void Change(const std::vector<std::string>& arguments) {
    const Result result = Run(arguments);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output + result.errors, "");
  }

  // What a command prints that succeeds.
  static std::string Print(const std::vector<std::string>& arguments) {
    const Result result = Run(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    return result.output;
  }

  // The sentences of a command that fails with that exit code and changes nothing.
  static std::string Fail(int exitCode, const std::vector<std::string>& arguments) {
    const std::string before = ReadFile(REGISTRY_FILE);
    const Result result = Run(arguments);
    EXPECT_EQ(result.exitCode, exitCode);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(ReadFile(REGISTRY_FILE), before);
    return result.errors;
  }
};
