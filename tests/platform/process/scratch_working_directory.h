#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/scratch_directory.h"

// The base of tests that run in a scratch directory.
class ScratchWorkingDirectory : public testing::Test {
 protected:
  ScratchWorkingDirectory() { std::filesystem::current_path(m_oScratch.Path()); }
  ~ScratchWorkingDirectory() override { std::filesystem::current_path("/"); }

  static std::string Current() { return std::filesystem::read_symlink("/proc/self/cwd"); }

  const ScratchDirectory m_oScratch;
};
