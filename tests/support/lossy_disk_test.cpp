#include "tests/support/lossy_disk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Pair;
using testing::UnorderedElementsAre;

using Files = LossyDisk::Files;

class LossyDiskTest : public testing::Test {
 protected:
  LossyDiskTest() : m_oDirectory(m_oDisk.CreateDirectory("/d")) { m_oDisk.FlushAll(); }

  LossyDisk::Node CreateFlushed(const std::string& path, const std::string& bytes) {
    const LossyDisk::Node file = m_oDisk.CreateFile(path);
    m_oDisk.Write(file, 0, bytes);
    m_oDisk.FlushAll();
    return file;
  }

  LossyDisk m_oDisk;
  const LossyDisk::Node m_oDirectory;
};

TEST_F(LossyDiskTest, FlushedFileIsAllThatIsLeft) {
  CreateFlushed("/d/a", "text");
  EXPECT_THAT(m_oDisk.GetSurvivors(), ElementsAre(Files{{"/d/a", "text"}}));
}

TEST_F(LossyDiskTest, UnflushedFileIsMissingEmptyCutZeroOrWhole) {
  m_oDisk.Write(m_oDisk.CreateFile("/d/a"), 0, "xyz");
  EXPECT_THAT(m_oDisk.GetFiles(), ElementsAre(Pair("/d/a", "xyz")));
  EXPECT_THAT(m_oDisk.GetSurvivors(),
              UnorderedElementsAre(Files{}, Files{{"/d/a", ""}}, Files{{"/d/a", "x"}},
                                   Files{{"/d/a", "xy"}}, Files{{"/d/a", "xyz"}},
                                   Files{{"/d/a", std::string(3, '\0')}}));
}

TEST_F(LossyDiskTest, FlushOfAFileDoesNotFlushItsName) {
  const LossyDisk::Node file = m_oDisk.CreateFile("/d/a");
  m_oDisk.Write(file, 0, "xyz");
  m_oDisk.Flush(file);
  EXPECT_THAT(m_oDisk.GetSurvivors(), UnorderedElementsAre(Files{}, Files{{"/d/a", "xyz"}}));
}

TEST_F(LossyDiskTest, FlushOfADirectoryDoesNotFlushTheBytesOfItsFiles) {
  m_oDisk.Write(m_oDisk.CreateFile("/d/a"), 0, "x");
  m_oDisk.Flush(m_oDirectory);
  EXPECT_THAT(m_oDisk.GetSurvivors(),
              UnorderedElementsAre(Files{{"/d/a", ""}}, Files{{"/d/a", "x"}},
                                   Files{{"/d/a", std::string(1, '\0')}}));
}

TEST_F(LossyDiskTest, FlushOfADirectoryDoesNotFlushItsOwnName) {
  const LossyDisk::Node made = m_oDisk.CreateDirectory("/d/made");
  const LossyDisk::Node file = m_oDisk.CreateFile("/d/made/a");
  m_oDisk.Flush(file);
  m_oDisk.Flush(made);
  EXPECT_THAT(m_oDisk.GetSurvivors(), UnorderedElementsAre(Files{}, Files{{"/d/made/a", ""}}));
  m_oDisk.Flush(m_oDirectory);
  EXPECT_THAT(m_oDisk.GetSurvivors(), ElementsAre(Files{{"/d/made/a", ""}}));
}

TEST_F(LossyDiskTest, ChangesOfNamesInADirectoryAreLeftInTheirOrder) {
  CreateFlushed("/d/a", "1");
  CreateFlushed("/d/b", "2");
  m_oDisk.Exchange("/d/a", "/d/b");
  m_oDisk.Rename("/d/a", "/d/c");
  m_oDisk.Remove("/d/b");
  m_oDisk.Link("/d/c", "/d/e");
  EXPECT_THAT(
      m_oDisk.GetSurvivors(),
      UnorderedElementsAre(Files{{"/d/a", "1"}, {"/d/b", "2"}}, Files{{"/d/a", "2"}, {"/d/b", "1"}},
                           Files{{"/d/b", "1"}, {"/d/c", "2"}}, Files{{"/d/c", "2"}},
                           Files{{"/d/c", "2"}, {"/d/e", "2"}}));
}

TEST_F(LossyDiskTest, ChangesInDifferentDirectoriesAreLeftInAnyOrder) {
  const LossyDisk::Node other = m_oDisk.CreateDirectory("/other");
  m_oDisk.FlushAll();
  m_oDisk.CreateFile("/d/a");
  m_oDisk.CreateFile("/other/a");
  EXPECT_EQ(m_oDisk.GetSurvivors().size(), 4U);
  m_oDisk.Flush(other);
  EXPECT_THAT(m_oDisk.GetSurvivors(),
              UnorderedElementsAre(Files{{"/other/a", ""}}, Files{{"/d/a", ""}, {"/other/a", ""}}));
}

TEST_F(LossyDiskTest, WritesToAFileAreLeftInTheirOrder) {
  const LossyDisk::Node file = CreateFlushed("/d/a", "old");
  m_oDisk.Truncate(file, 0);
  m_oDisk.Write(file, 0, "ne");
  m_oDisk.Write(file, 2, "w");
  EXPECT_THAT(m_oDisk.GetSurvivors(),
              UnorderedElementsAre(Files{{"/d/a", "old"}}, Files{{"/d/a", ""}},
                                   Files{{"/d/a", "n"}}, Files{{"/d/a", "ne"}},
                                   Files{{"/d/a", "new"}}, Files{{"/d/a", std::string(3, '\0')}}));
}

TEST_F(LossyDiskTest, FileThatAnOldNameMayBringBackCanBeHalfWrittenThere) {
  CreateFlushed("/d/a", "1");
  CreateFlushed("/d/b", "2");
  m_oDisk.Exchange("/d/a", "/d/b");
  m_oDisk.Truncate(*m_oDisk.Find("/d/b"), 0);
  EXPECT_THAT(m_oDisk.GetSurvivors(), Contains(Files{{"/d/a", ""}, {"/d/b", "2"}}));
}

TEST_F(LossyDiskTest, FileWithTwoNamesIsTheSameUnderBoth) {
  const LossyDisk::Node file = CreateFlushed("/d/a", "1");
  m_oDisk.Link("/d/a", "/d/b");
  m_oDisk.Flush(m_oDirectory);
  m_oDisk.Truncate(file, 0);
  EXPECT_THAT(m_oDisk.GetSurvivors(), UnorderedElementsAre(Files{{"/d/a", ""}, {"/d/b", ""}},
                                                           Files{{"/d/a", "1"}, {"/d/b", "1"}}));
}

TEST_F(LossyDiskTest, WhatCannotBeIsRefused) {
  CreateFlushed("/d/a", "1");
  m_oDisk.CreateDirectory("/other");
  EXPECT_THROW(m_oDisk.Rename("/d/a", "/other/a"), std::logic_error);
  EXPECT_THROW(m_oDisk.Exchange("/d/a", "/d/missing"), std::logic_error);
  EXPECT_THROW(m_oDisk.Remove("/d/missing"), std::logic_error);
  EXPECT_THROW(m_oDisk.CreateFile("/missing/a"), std::logic_error);
  EXPECT_THROW(m_oDisk.CreateFile("/d/a/b"), std::logic_error);
}

}  // namespace
