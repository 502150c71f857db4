#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>

#include "platform/registry/registry.h"
#include "platform/registry/registry_tree.h"
#include "tests/support/registry_files.h"
#include "tests/support/registry_model.h"

namespace fs = std::filesystem;

namespace {

using testing::Contains;
using testing::Key;
using testing::Pair;

constexpr size_t LONG_LINE = 10'000'000;
constexpr int DEEP = 100'000;

RegistryModel RootsOnly() {
  RegistryModel model;
  for (const char* root : ROOT_KEY_NAMES) {
    model[std::string(root) + '\n'] = ModelOfKey();
  }
  return model;
}

RegistryModel Load(const std::string& text) {
  WriteFile(REGISTRY_FILE, text);
  return LoadTree();
}

using RegistryHostileTest = RegistryFilesTest;

TEST_F(RegistryHostileTest, RandomTextCanBeSavedAndLoadedAgain) {
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    std::string text = "[a]\n";
    for (int count = 0; count < 2000; ++count) {
      text += "[]=sedb \n01ax%\xff"[random() % 15];
    }
    const RegistryModel loaded = Load(text);
    CRegistryTree::Get().MarkDirty();
    CRegistryTree::Get().SaveTree();
    ASSERT_EQ(LoadTree(), loaded) << "round " << round;
  }
}

TEST_F(RegistryHostileTest, LineOfTenMegabytesIsReadInPieces) {
  const auto check = [](const std::string& line, const RegistryModel& expected) {
    RegistryModel model = RootsOnly();
    model.insert(expected.begin(), expected.end());
    EXPECT_EQ(Load(line), model);
    EXPECT_EQ(Load(line + "\n"), model);
  };
  check(std::string(LONG_LINE, 'x'), {});
  check(std::string(LONG_LINE, '='), {});
  check(std::string(LONG_LINE, '['), {});
  check(std::string(LONG_LINE, ']'), {});
  check(std::string(LONG_LINE, '\0'), {});
  check("a=s=" + std::string(LONG_LINE, 'x'), {{"a\n", "1:" + std::string(1019, 'x')}});
  check("a=d=" + std::string(LONG_LINE, '9'), {{"a\n", "4:-1"}});
  check("a=b=" + std::string(LONG_LINE, 'f'), {{"a\n", "3:\xff"}});
  check("a=b=" + Repeated("01 ", LONG_LINE / 3), {{"a\n", "3:" + std::string(340, '\1')}});
}

TEST_F(RegistryHostileTest, TenMegabytesOfLineEndsHoldNothing) {
  EXPECT_EQ(Load(std::string(LONG_LINE, '\n')), RootsOnly());
}

TEST_F(RegistryHostileTest, HundredThousandKeysOfOneNameAreOneKey) {
  RegistryModel expected = RootsOnly();
  expected["k\n"] = ModelOfKey();
  EXPECT_EQ(Load(Repeated("[k]\n\n", DEEP)), expected);
}

// --- Things that are no files ---

void MakeLinkToItself(const char* path) { fs::create_symlink(path, path); }
void MakeLinkToDevice(const char* path) { fs::create_symlink("/dev/zero", path); }

TEST_F(RegistryHostileTest, WhatIsNoFileIsPassedOverWithoutWaiting) {
  for (const auto make :
       {MakePipe, MakeDirectory, MakeDanglingLink, MakeLinkToItself, MakeLinkToDevice}) {
    ResetRegistry();
    make(REGISTRY_FILE);
    WriteFile(REGISTRY_BACKUP_FILE, "[backup]\n");
    EXPECT_THAT(LoadTree(), Contains(Pair("backup\n", ModelOfKey())));

    fs::remove(REGISTRY_BACKUP_FILE);
    make(REGISTRY_BACKUP_FILE);
    WriteFile(REGISTRY_DEFAULT_FILE, "[default]\n");
    EXPECT_THAT(LoadTree(), Contains(Pair("default\n", ModelOfKey())));

    fs::remove(REGISTRY_DEFAULT_FILE);
    make(REGISTRY_DEFAULT_FILE);
    EXPECT_EQ(LoadTree(), RootsOnly());
  }
}

TEST_F(RegistryHostileTest, LinkToAFileIsFollowed) {
  WriteFile("/etc/qamrel/elsewhere", "[there]\n");
  fs::create_symlink("elsewhere", REGISTRY_FILE);
  EXPECT_THAT(LoadTree(), Contains(Key("there\n")));
}

}  // namespace
