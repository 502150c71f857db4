// What an import leaves when the machine loses power.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <iostream>
#include <ostream>
#include <set>
#include <string>

#include "tests/support/disk_recorder.h"
#include "tests/support/fault_plan.h"
#include "tests/support/forgotten_flush.h"
#include "tests/support/registry_files.h"
#include "tests/support/registry_model.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/stepped_child.h"
#include "tools/qamreg/commands.h"

namespace {

using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::UnorderedElementsAre;

struct ImportStart {
  const char* name;
  const char* current;  // null: there is not even a directory
  int exchangeError = 0;
};

void PrintTo(const ImportStart& start, std::ostream* stream) { *stream << start.name; }

class QamregPowerLossTest : public RegistryFilesTest,
                            public testing::WithParamInterface<ImportStart> {
 protected:
  QamregPowerLossTest() {
    if (GetParam().current != nullptr) {
      WriteTree(GetParam().current);
    } else {
      std::filesystem::remove_all(REGISTRY_DIRECTORY);
    }
    m_oBefore = LoadTree();
    CRegistryTree::Get().Release();
  }

  void Import() const {
    SteppedChild::Begin();
    ImportFile(m_strImport);
  }

  DiskRecorder::Survivors Run(DiskRecorder& disk) const {
    return disk.Run([this] { Import(); });
  }

  static std::set<RegistryModel> LoadEach(const DiskRecorder& disk,
                                          const DiskRecorder::Survivors& survivors) {
    std::set<RegistryModel> trees;
    for (const LossyDisk::Files& files : survivors) {
      disk.Restore(files);
      trees.insert(LoadTree());
    }
    return trees;
  }

  const ExchangeRefusal m_oRefusal{GetParam().exchangeError};
  ScratchDirectory m_oFiles;
  const std::string m_strImport =
      m_oFiles.Write("import", "[HKEY_LOCAL_MACHINE]\n[A]\nnew=s=1\n[B]\nnewer=d=2\n\n\n\n\n");
  RegistryModel m_oBefore;
};

INSTANTIATE_TEST_SUITE_P(
    Qamreg, QamregPowerLossTest,
    testing::Values(ImportStart{"NoDirectory", nullptr}, ImportStart{"Current", "[A]\nold=s=1\n\n"},
                    ImportStart{"CurrentWithoutExchange", "[A]\nold=s=1\n\n", ENOSYS}),
    NameOf<ImportStart>);

TEST_P(QamregPowerLossTest, AnyMomentOfAnImportLeavesTheOldOrTheNewTree) {
  DiskRecorder disk(REGISTRY_DIRECTORY);
  const DiskRecorder::Survivors survivors = Run(disk);
  std::cout << survivors.size() << " states\n";
  const RegistryModel after = LoadTree();
  EXPECT_THAT(LoadEach(disk, survivors), UnorderedElementsAre(m_oBefore, after));
}

TEST_P(QamregPowerLossTest, EndOfAnImportLeavesTheNewTree) {
  DiskRecorder disk(REGISTRY_DIRECTORY);
  Run(disk);
  const RegistryModel after = LoadTree();
  EXPECT_THAT(LoadEach(disk, disk.GetSurvivors()), ElementsAre(after));
}

// --- Faults that the tests above are to find ---

TEST_P(QamregPowerLossTest, ImportThatForgotToFlushItsFileIsFound) {
  const auto fault = ForgetFlush(Forgotten::FILES);
  DiskRecorder disk(REGISTRY_DIRECTORY);
  const DiskRecorder::Survivors survivors = Run(disk);
  const RegistryModel after = LoadTree();
  EXPECT_THAT(LoadEach(disk, survivors), Contains(Not(AnyOf(m_oBefore, after))));
}

TEST_P(QamregPowerLossTest, ImportThatForgotToFlushADirectoryIsFound) {
  const auto fault = ForgetFlush(Forgotten::DIRECTORIES);
  DiskRecorder disk(REGISTRY_DIRECTORY);
  Run(disk);
  EXPECT_THAT(LoadEach(disk, disk.GetSurvivors()), Contains(m_oBefore));
}

}  // namespace
