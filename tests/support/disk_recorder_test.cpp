#include "tests/support/disk_recorder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "base/descriptor.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/stepped_child.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::UnorderedElementsAre;

using Files = LossyDisk::Files;

class DiskRecorderTest : public testing::Test {
 protected:
  // A file below the directory that is followed.
  std::string Path(const std::string& name) const { return m_strDirectory + "/" + name; }

  const ScratchDirectory m_oFiles;
  const std::string m_strDirectory = m_oFiles.Path("followed");
};

TEST_F(DiskRecorderTest, WritesAndNamesAreFollowed) {
  m_oFiles.Write("followed/old", "1");
  DiskRecorder disk(m_strDirectory);
  const auto survivors = disk.Run([this] {
    SteppedChild::Begin();
    const CDescriptor file(open(Path("new").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (write(file.Get(), "2", 1) == 1 && fsync(file.Get()) == 0) {
      rename(Path("new").c_str(), Path("old").c_str());
    }
  });
  EXPECT_EQ(disk.GetExitCode(), 0);
  EXPECT_THAT(survivors, Contains(Files{{Path("new"), ""}, {Path("old"), "1"}}));
  EXPECT_THAT(disk.GetSurvivors(),
              UnorderedElementsAre(Files{{Path("old"), "1"}}, Files{{Path("old"), "2"}},
                                   Files{{Path("new"), "2"}, {Path("old"), "1"}}));
}

TEST_F(DiskRecorderTest, WritesAtOffsetsAndTruncationsAreFollowed) {
  const std::string path = m_oFiles.Write("followed/file", "0123");
  DiskRecorder disk(m_strDirectory);
  disk.Run([&path] {
    SteppedChild::Begin();
    const CDescriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    const CDescriptor end(open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    char byte = 0;
    const bool isDone = read(file.Get(), &byte, 1) == 1 && write(file.Get(), "a", 1) == 1 &&
                        pwrite(file.Get(), "b", 1, 3) == 1 && write(end.Get(), "c", 1) == 1 &&
                        ftruncate(file.Get(), 5) == 0 && fsync(end.Get()) == 0;
    _exit(isDone ? 0 : 1);
  });
  EXPECT_EQ(disk.GetExitCode(), 0);
  EXPECT_THAT(disk.GetSurvivors(), ElementsAre(Files{{path, "0a2bc"}}));
}

TEST_F(DiskRecorderTest, DirectoriesThatAreMadeAreFollowed) {
  DiskRecorder disk(m_strDirectory);
  disk.Run([this] {
    SteppedChild::Begin();
    mkdir(m_strDirectory.c_str(), 0700);
    CDescriptor(open(Path("file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)).Close();
    const CDescriptor around(open(m_oFiles.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    fsync(around.Get());
  });
  EXPECT_THAT(disk.GetSurvivors(), UnorderedElementsAre(Files{}, Files{{Path("file"), ""}}));
}

TEST_F(DiskRecorderTest, KilledActionHasDoneWhatCameBefore) {
  const auto action = [this] {
    SteppedChild::Begin();
    mkdir(m_strDirectory.c_str(), 0700);
    m_oFiles.Write("followed/file", "text");
  };
  DiskRecorder disk(m_strDirectory);
  disk.Run(action, 1);
  EXPECT_EQ(disk.GetCallCount(), 1);
  EXPECT_TRUE(std::filesystem::is_empty(m_strDirectory));
  EXPECT_THAT(disk.Run([this] {
    SteppedChild::Begin();
    m_oFiles.Write("followed/file", "text");
  }),
              Contains(Files{{Path("file"), "text"}}));
}

TEST_F(DiskRecorderTest, RestoredFilesAreAllThatIsThere) {
  m_oFiles.Write("followed/old", "1");
  const DiskRecorder disk(m_strDirectory);
  disk.Restore({{Path("below/new"), "2"}});
  EXPECT_EQ(DiskRecorder(m_strDirectory).GetSurvivors(),
            (DiskRecorder::Survivors{{{Path("below/new"), "2"}}}));
}

TEST_F(DiskRecorderTest, ChangeThatTheModelDoesNotKnowIsRefused) {
  const std::string path = m_oFiles.Write("followed/file", "text");
  DiskRecorder disk(m_strDirectory);
  EXPECT_THROW(disk.Run([&path] {
    SteppedChild::Begin();
    _exit(truncate(path.c_str(), 1));
  }),
               std::logic_error);
}

}  // namespace
