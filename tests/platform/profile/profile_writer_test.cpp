#include "platform/profile/profile_writer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/platform/profile/profile_test_file.h"
#include "tests/support/system_calls.h"

namespace {

class ProfileWriterTest : public testing::Test {
 protected:
  static ProfileUpdate Update(const char* key, const char* value, const std::string& file) {
    return UpdateProfileFile("s", key, value, file.c_str(), {});
  }
  ProfileUpdate Update(const char* key, const char* value) const {
    return Update(key, value, m_oFile.Name());
  }
  ProfileUpdate Write() const { return Update("key", "new"); }
  ProfileUpdate RemoveKey() const { return Update("key", nullptr); }
  ProfileUpdate RemoveSection() const { return Update(nullptr, "value"); }

  void ExpectResult(ProfileUpdate expected) const {
    EXPECT_EQ(Write(), expected);
    EXPECT_EQ(RemoveKey(), expected);
    EXPECT_EQ(RemoveSection(), expected);
  }

  const ProfileTestFile m_oFile;
};

// Lets no file be opened for reading and writing.
ScopedAnswer RefuseReading() {
  return calls::open.Answer([](const char* path, int flags, mode_t mode) {
    return (flags & O_ACCMODE) == O_RDWR ? calls::open.FailNow(EACCES, path, flags, mode)
                                         : calls::open.Real(path, flags, mode);
  });
}

constexpr char NEW_SECTION[] = "\n[s]\n\nkey=new\n";

TEST_F(ProfileWriterTest, ANewFileGetsAnEmptyLineTheHeaderAnEmptyLineAndTheKey) {
  EXPECT_EQ(Write(), ProfileUpdate::DONE);
  EXPECT_EQ(m_oFile.Text(), "\n[s]\n\nkey=new\n");
}

TEST_F(ProfileWriterTest, ChangesAFileThatExists) {
  m_oFile.SetText("[s]\na=1\nkey=old\n[b]\n");
  EXPECT_EQ(Write(), ProfileUpdate::DONE);
  EXPECT_EQ(m_oFile.Text(), "[s]\na=1\nkey=new\n[b]\n");
  EXPECT_EQ(RemoveKey(), ProfileUpdate::DONE);
  EXPECT_EQ(m_oFile.Text(), "[s]\na=1\n[b]\n");
  EXPECT_EQ(RemoveKey(), ProfileUpdate::NOT_DONE);
  EXPECT_EQ(RemoveSection(), ProfileUpdate::DONE);
  EXPECT_EQ(m_oFile.Text(), "[b]\n");
}

TEST_F(ProfileWriterTest, RemovingFromAMissingFileMakesNone) {
  EXPECT_EQ(RemoveKey(), ProfileUpdate::NOT_DONE);
  EXPECT_EQ(RemoveSection(), ProfileUpdate::NOT_DONE);
  EXPECT_FALSE(m_oFile.Exists());
}

TEST_F(ProfileWriterTest, AFileThatCannotBeReadIsAppendedTo) {
  m_oFile.SetText("[s]\nkey=old\n");
  const auto refusing = RefuseReading();
  EXPECT_EQ(Write(), ProfileUpdate::DONE);
  EXPECT_EQ(m_oFile.Text(), std::string("[s]\nkey=old\n") + NEW_SECTION);
}

TEST_F(ProfileWriterTest, NothingIsRemovedFromAFileThatCannotBeOpened) {
  m_oFile.SetText("[s]\nkey=old\n");
  const auto refusing = RefuseReading();
  EXPECT_EQ(RemoveKey(), ProfileUpdate::CANNOT_OPEN);
  EXPECT_EQ(RemoveSection(), ProfileUpdate::CANNOT_OPEN);
  EXPECT_EQ(m_oFile.Text(), "[s]\nkey=old\n");
}

TEST_F(ProfileWriterTest, AFileThatCannotBeMadeIsReported) {
  const std::string name = m_oFile.NameOf("missing/file");
  EXPECT_EQ(Update("key", "new", name), ProfileUpdate::CANNOT_OPEN);
}

TEST_F(ProfileWriterTest, APipeOrDirectoryIsRefusedWithoutWaiting) {
  ASSERT_EQ(mkfifo(m_oFile.Name(), 0600), 0);
  ExpectResult(ProfileUpdate::CANNOT_OPEN);
  const int reader = open(m_oFile.Name(), O_RDWR | O_NONBLOCK | O_CLOEXEC, 0);
  ExpectResult(ProfileUpdate::CANNOT_OPEN);
  char byte = 0;
  EXPECT_EQ(read(reader, &byte, 1), -1);
  close(reader);
  std::filesystem::remove(m_oFile.Name());
  std::filesystem::create_directory(m_oFile.Name());
  ExpectResult(ProfileUpdate::CANNOT_OPEN);
}

TEST_F(ProfileWriterTest, WritesThroughALink) {
  const std::string link = m_oFile.NameOf("link");
  std::filesystem::create_symlink(m_oFile.Name(), link);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Update("key", "new", link), ProfileUpdate::DONE);
    EXPECT_EQ(m_oFile.Text(), NEW_SECTION);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
  }
}

TEST_F(ProfileWriterTest, AFileThatAppearsMeanwhileIsSearched) {
  const auto appears = calls::open.Answer([this](const char* path, int flags, mode_t mode) {
    if ((flags & O_EXCL) != 0) {
      m_oFile.SetText("[s]\nkey=old\n[a]\n");
    }
    return calls::open.Real(path, flags, mode);
  });
  EXPECT_EQ(Write(), ProfileUpdate::DONE);
  EXPECT_EQ(m_oFile.Text(), "[s]\n\nkey=new\n[a]\n");
}

TEST_F(ProfileWriterTest, ANewFileThatCannotBeWrittenIsRemoved) {
  const auto failing = calls::pwrite.Fail(ENOSPC);
  EXPECT_EQ(Write(), ProfileUpdate::NOT_DONE);
  EXPECT_FALSE(m_oFile.Exists());
}

TEST_F(ProfileWriterTest, ANewFileThatSomebodyElseHasFilledStays) {
  const auto filling = calls::flock.Answer([this](int descriptor, int operation) {
    m_oFile.SetText("[a]\n");
    return calls::flock.Real(descriptor, operation);
  });
  const auto failing = calls::pwrite.Fail(ENOSPC);
  EXPECT_EQ(Write(), ProfileUpdate::NOT_DONE);
  EXPECT_EQ(m_oFile.Text(), "[a]\n");
}

TEST_F(ProfileWriterTest, AFileThatCannotBeWrittenStays) {
  const auto failing = calls::pwrite.Fail(ENOSPC);
  for (const std::string text : {"[s]\na=1\nkey=old\n", "[s]\n", "[a]\n", ""}) {
    m_oFile.SetText(text);
    EXPECT_EQ(Write(), ProfileUpdate::NOT_DONE);
    {
      const auto refusing = RefuseReading();
      EXPECT_EQ(Write(), ProfileUpdate::NOT_DONE);
    }
    EXPECT_TRUE(m_oFile.Exists());
    EXPECT_EQ(m_oFile.Text(), text);
  }
}

TEST_F(ProfileWriterTest, AFileThatCannotBeReadToItsEndStays) {
  m_oFile.SetText("[s]\na=1\n");
  const auto failing = calls::read.Fail(EIO);
  ExpectResult(ProfileUpdate::NOT_DONE);
  EXPECT_EQ(m_oFile.Text(), "[s]\na=1\n");
}

}  // namespace
