#include "host/file_replacement.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <tuple>
#include <vector>

#include "base/descriptor.h"
#include "platform/profile/profile_string.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/system_calls.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class FileReplacementTest : public testing::Test {
 protected:
  static void Replace(const std::string& path, const std::string& text) {
    CFileReplacement replacement(path);
    std::ofstream(replacement.GetCopy()) << text;
    replacement.Commit();
  }

  // Expects that the replacement fails for that reason.
  static void ExpectFailure(const std::string& path, int error) {
    try {
      Replace(path, "new");
      ADD_FAILURE() << "it did not fail";
    } catch (const std::system_error& failure) {
      EXPECT_EQ(failure.code().value(), error);
    }
  }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(m_oFiles.Path())) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  const ScratchDirectory m_oFiles;
  const std::string m_strFile = m_oFiles.Path("file");
};

TEST_F(FileReplacementTest, CopyHoldsTheFileAndTakesItsPlace) {
  m_oFiles.Write("file", "old");
  CFileReplacement replacement(m_strFile);
  std::ofstream(replacement.GetCopy(), std::ios::app) << " and new";
  EXPECT_EQ(m_oFiles.Read("file"), "old");
  replacement.Commit();
  EXPECT_EQ(m_oFiles.Read("file"), "old and new");
  EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_F(FileReplacementTest, WithoutACommitNothingChanges) {
  m_oFiles.Write("file", "old");
  { std::ofstream(CFileReplacement(m_strFile).GetCopy()) << "new"; }
  EXPECT_EQ(m_oFiles.Read("file"), "old");
  EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_F(FileReplacementTest, MissingFileIsMadeOnlyByACommit) {
  { const CFileReplacement replacement(m_strFile); }
  EXPECT_THAT(Names(), IsEmpty());
  Replace(m_oFiles.Path("a/b/file"), "new");
  EXPECT_EQ(m_oFiles.Read("a/b/file"), "new");
}

TEST_F(FileReplacementTest, OwnerAndModeStay) {
  m_oFiles.Write("file", "old");
  std::ignore = chown(m_strFile.c_str(), 1, 1);  // refused where there is one user only
  ASSERT_EQ(chmod(m_strFile.c_str(), 0604), 0);
  struct stat before = {};
  ASSERT_EQ(stat(m_strFile.c_str(), &before), 0);
  Replace(m_strFile, "new");
  struct stat after = {};
  ASSERT_EQ(stat(m_strFile.c_str(), &after), 0);
  EXPECT_NE(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_uid, before.st_uid);
  EXPECT_EQ(after.st_gid, before.st_gid);
  EXPECT_EQ(after.st_mode, before.st_mode);
}

TEST_F(FileReplacementTest, WhatALinkLeadsToIsReplaced) {
  m_oFiles.Write("file", "old");
  fs::create_symlink("file", m_oFiles.Path("link"));
  Replace(m_oFiles.Path("link"), "new");
  EXPECT_TRUE(fs::is_symlink(m_oFiles.Path("link")));
  EXPECT_EQ(m_oFiles.Read("file"), "new");
}

TEST_F(FileReplacementTest, FileThatAnotherHoldsIsNotReplaced) {
  m_oFiles.Write("file", "old");
  const CDescriptor file(open(m_strFile.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(file.Get(), LOCK_SH | LOCK_NB), 0);
  ExpectFailure(m_strFile, EWOULDBLOCK);
}

TEST_F(FileReplacementTest, FileThatIsReplacedBeforeItIsLockedIsTakenAnew) {
  m_oFiles.Write("file", "old");
  const auto lock = calls::flock.Answer([this, isFirst = true](int file, int operation) mutable {
    if (isFirst) {
      isFirst = false;
      fs::rename(m_oFiles.Write("other", "newer"), m_strFile);
    }
    return calls::flock.Real(file, operation);
  });
  CFileReplacement replacement(m_strFile);
  EXPECT_EQ(std::ifstream(replacement.GetCopy()).get(), 'n');
}

TEST_F(FileReplacementTest, ProfileCallThatWaitsChangesTheNewFile) {
  m_oFiles.Write("file", "[s]\nkey=old\n");
  std::optional<CFileReplacement> replacement(m_strFile);
  std::ofstream(replacement->GetCopy()) << "[s]\nother=new\nkey=old\n";
  const auto sleep = calls::nanosleep.Answer([&replacement](const timespec*, timespec*) {
    replacement->Commit();
    replacement.reset();
    return 0;
  });
  EXPECT_EQ(WritePrivateProfileString("s", "key", "newer", m_strFile.c_str()), 1U);
  EXPECT_EQ(sleep.GetCount(), 1);
  EXPECT_EQ(m_oFiles.Read("file"), "[s]\nother=new\nkey=newer\n");
}

TEST_F(FileReplacementTest, WhatFailsLeavesTheFileAsItWasAndNothingBesides) {
  m_oFiles.Write("file", "old");
  const std::function<ScopedAnswer()> faults[] = {
      [] { return calls::mkostemp.Fail(ENOSPC); }, [] { return calls::write.Fail(ENOSPC); },
      [] { return calls::fchmod.Fail(ENOSPC); }, [] { return calls::fsync.Fail(ENOSPC); },
      [] { return calls::rename.Fail(ENOSPC); }};
  for (const auto& fault : faults) {
    const ScopedAnswer failing = fault();
    ExpectFailure(m_strFile, ENOSPC);
    EXPECT_EQ(m_oFiles.Read("file"), "old");
    EXPECT_THAT(Names(), ElementsAre("file"));
  }
}

TEST_F(FileReplacementTest, WhatIsNoFileIsRefused) {
  fs::create_directory(m_strFile);
  ExpectFailure(m_strFile, EISDIR);
  fs::remove(m_strFile);
  ASSERT_EQ(mkfifo(m_strFile.c_str(), 0600), 0);
  ExpectFailure(m_strFile, EINVAL);
}

}  // namespace
