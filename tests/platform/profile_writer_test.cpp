#include "platform/profile_writer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/platform/profile_test_file.h"

namespace {

// The errno with which an open with these flags fails; 0: it does not.
std::function<int(int flags)> g_onOpen;
bool g_bReadFails = false;
bool g_bWriteFails = false;
std::vector<std::string> g_oRemoved;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
extern "C" int __real_open(const char* path, int flags, ...);
extern "C" ssize_t __real_read(int descriptor, void* buffer, size_t size);
extern "C" ssize_t __real_pwrite(int descriptor, const void* buffer, size_t size, off_t offset);
extern "C" int __real_unlink(const char* path);

extern "C" int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  const int error = g_onOpen ? g_onOpen(flags) : 0;
  if (error != 0) {
    errno = error;
    return -1;
  }
  return __real_open(path, flags, mode);
}

extern "C" ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
  if (g_bReadFails) {
    errno = EIO;
    return -1;
  }
  return __real_read(descriptor, buffer, size);
}

extern "C" ssize_t __wrap_pwrite(int descriptor, const void* buffer, size_t size, off_t offset) {
  if (g_bWriteFails) {
    errno = ENOSPC;
    return -1;
  }
  return __real_pwrite(descriptor, buffer, size, offset);
}

extern "C" int __wrap_unlink(const char* path) {
  g_oRemoved.emplace_back(path);
  return __real_unlink(path);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

class ProfileWriterTest : public testing::Test {
 protected:
  ~ProfileWriterTest() override {
    g_onOpen = nullptr;
    g_bReadFails = g_bWriteFails = false;
    g_oRemoved.clear();
  }

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

void RefuseReading(int error) {
  g_onOpen = [error](int flags) { return (flags & O_ACCMODE) == O_RDWR ? error : 0; };
}

constexpr char NEW_SECTION[] = "\n[s]\n\nkey=new\n";

}  // namespace

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
  RefuseReading(EACCES);
  EXPECT_EQ(Write(), ProfileUpdate::DONE);
  EXPECT_EQ(m_oFile.Text(), std::string("[s]\nkey=old\n") + NEW_SECTION);
}

TEST_F(ProfileWriterTest, NothingIsRemovedFromAFileThatCannotBeOpened) {
  m_oFile.SetText("[s]\nkey=old\n");
  RefuseReading(EACCES);
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
  g_onOpen = [this](int flags) {
    if ((flags & O_EXCL) != 0) {
      m_oFile.SetText("[s]\nkey=old\n[a]\n");
    }
    return 0;
  };
  EXPECT_EQ(Write(), ProfileUpdate::DONE);
  EXPECT_EQ(m_oFile.Text(), "[s]\n\nkey=new\n[a]\n");
}

TEST_F(ProfileWriterTest, ANewFileThatCannotBeWrittenIsRemoved) {
  g_bWriteFails = true;
  EXPECT_EQ(Write(), ProfileUpdate::NOT_DONE);
  EXPECT_FALSE(m_oFile.Exists());
  EXPECT_EQ(g_oRemoved, std::vector<std::string>{m_oFile.Name()});
}

TEST_F(ProfileWriterTest, AFileThatCannotBeWrittenStays) {
  for (const std::string text : {"[s]\na=1\nkey=old\n", "[s]\n", "[a]\n", ""}) {
    m_oFile.SetText(text);
    g_bWriteFails = true;
    EXPECT_EQ(Write(), ProfileUpdate::NOT_DONE);
    RefuseReading(EACCES);
    EXPECT_EQ(Write(), ProfileUpdate::NOT_DONE);
    g_onOpen = nullptr;
    g_bWriteFails = false;
    EXPECT_EQ(m_oFile.Text(), text);
  }
  EXPECT_TRUE(g_oRemoved.empty());
}

TEST_F(ProfileWriterTest, AFileThatCannotBeReadToItsEndStays) {
  m_oFile.SetText("[s]\na=1\n");
  g_bReadFails = true;
  ExpectResult(ProfileUpdate::NOT_DONE);
  g_bReadFails = false;
  EXPECT_EQ(m_oFile.Text(), "[s]\na=1\n");
}
