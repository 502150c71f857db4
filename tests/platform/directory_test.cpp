#include "platform/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/dropped_capabilities.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/trace_session.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Not;

namespace {

bool g_bChangeModeFails = false;
bool g_bStatReportsLinks = false;
bool g_bOpenFails = false;
bool g_bKindsAreUnknown = false;
int g_nUnlinksToFail = 0;
std::vector<std::string> g_oCalls;  // for an entry that is no directory

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's names.
extern "C" {

long __real_syscall(long number, ...);
long __wrap_syscall(long number, ...) {
  va_list arguments;
  va_start(arguments, number);
  const long first = va_arg(arguments, long);
  const long second = va_arg(arguments, long);
  const long third = va_arg(arguments, long);
  const long fourth = va_arg(arguments, long);
  va_end(arguments);
  const bool changesMode = number != SYS_capget && number != SYS_capset;
  if (changesMode) {
    g_oCalls.emplace_back("chmod");
  }
  if (changesMode && g_bChangeModeFails) {
    errno = EACCES;
    return -1;
  }
  return __real_syscall(number, first, second, third, fourth);
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  if (g_bOpenFails) {
    errno = EMFILE;
    return -1;
  }
  return __real_open(path, flags);
}

int __real_fstatat(int directory, const char* path, struct stat* status, int flags);
int __wrap_fstatat(int directory, const char* path, struct stat* status, int flags) {
  g_oCalls.emplace_back("stat");
  return __real_fstatat(directory, path, status, g_bStatReportsLinks ? AT_SYMLINK_NOFOLLOW : flags);
}

int __real_unlinkat(int directory, const char* path, int flags);
int __wrap_unlinkat(int directory, const char* path, int flags) {
  g_oCalls.emplace_back("unlink");
  if (g_nUnlinksToFail > 0) {
    --g_nUnlinksToFail;
    errno = EACCES;
    return -1;
  }
  return __real_unlinkat(directory, path, flags);
}

int __real_scandir(const char* path, dirent*** entries, int (*filter)(const dirent*),
                   int (*compare)(const dirent**, const dirent**));
int __wrap_scandir(const char* path, dirent*** entries, int (*filter)(const dirent*),
                   int (*compare)(const dirent**, const dirent**)) {
  const int count = __real_scandir(path, entries, filter, compare);
  for (int index = 0; g_bKindsAreUnknown && index < count; ++index) {
    (*entries)[index]->d_type = DT_UNKNOWN;
  }
  return count;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

namespace fs = std::filesystem;

constexpr bool WITH_PARENT = true;
constexpr bool WITHOUT_PARENT = false;

class DirectoryTest : public testing::Test {
 protected:
  DirectoryTest() { fs::create_directories(m_strTop); }

  std::string Top(const std::string& name) const { return m_strTop + "/" + name; }

  void Make(const std::string& name) const { m_oScratch.Write("top/" + name, "content"); }

  int32_t Remove(bool removeParent = WITH_PARENT) const {
    return CDirectory::RemoveDirectory(m_strTop.c_str(), removeParent);
  }

  // The lines that a removal writes.
  std::vector<std::string> Lines(int32_t result, bool removeParent = WITH_PARENT) const {
    const TraceSession session(5);
    EXPECT_EQ(Remove(removeParent), result);
    return session.Texts();
  }

  static std::string Line(const std::string& text) { return "\nCDirectory          : " + text; }

  const ScratchDirectory m_oScratch;
  const std::string m_strTop = m_oScratch.Path("top");
};

}  // namespace

TEST_F(DirectoryTest, RemovesATreeDepthFirstInSortedOrder) {
  for (const char* name : {"z", "b/y", "b/a/x", "B/w", "a"}) {
    Make(name);
  }
  const std::string& top = m_strTop;
  const auto file = [&](const std::string& name) {
    return std::vector{Line("Found file: \"" + top + name + "\""),
                       Line("Remove file \"" + top + name + "\" OK!")};
  };
  const auto enter = [&](const std::string& name) {
    return std::vector{Line("Found dir: \"" + top + name + "\""),
                       Line("Remove directory \"" + top + name + "\"")};
  };
  const auto leave = [&](const std::string& name) {
    return std::vector{Line("Remove directory parent \"" + top + name + "/\""),
                       Line("Remove directory parent \"" + top + name + "/\" OK!"),
                       Line("Remove directory \"" + top + name + "\" OK!")};
  };
  std::vector<std::string> expected = {Line("Remove directory \"" + top + "\"")};
  for (const auto& lines :
       {enter("/B"), file("/B/w"), leave("/B"), file("/a"), enter("/b"), enter("/b/a"),
        file("/b/a/x"), leave("/b/a"), file("/b/y"), leave("/b"), file("/z")}) {
    expected.insert(expected.end(), lines.begin(), lines.end());
  }
  expected.push_back(Line("Remove directory parent \"" + top + "/\""));
  expected.push_back(Line("Remove directory parent \"" + top + "/\" OK!"));
  EXPECT_THAT(Lines(1), ElementsAreArray(expected));
  EXPECT_FALSE(fs::exists(top));
}

TEST_F(DirectoryTest, KeepsTheDirectoryItselfWithoutRemoveParent) {
  Make("a");
  Make("b/c");
  const std::vector<std::string> lines = Lines(1, WITHOUT_PARENT);
  EXPECT_TRUE(fs::is_empty(m_strTop));
  EXPECT_THAT(lines, Not(testing::Contains(Line("Remove directory parent \"" + m_strTop + "/\""))));
}

TEST_F(DirectoryTest, RemovesAnEmptyDirectory) {
  EXPECT_EQ(Remove(WITHOUT_PARENT), 1);
  EXPECT_TRUE(fs::exists(m_strTop));
  EXPECT_EQ(Remove(), 1);
  EXPECT_FALSE(fs::exists(m_strTop));
}

TEST_F(DirectoryTest, AcceptsAPathThatEndsInASlash) {
  Make("a/b");
  EXPECT_EQ(CDirectory::RemoveDirectory((m_strTop + "/").c_str(), WITH_PARENT), 1);
  EXPECT_FALSE(fs::exists(m_strTop));
}

TEST_F(DirectoryTest, AcceptsARelativePath) {
  Make("a/b");
  fs::current_path(m_oScratch.Path());
  EXPECT_EQ(CDirectory::RemoveDirectory("top", WITH_PARENT), 1);
  EXPECT_FALSE(fs::exists(m_strTop));
  fs::current_path("/");
}

TEST_F(DirectoryTest, RefusesANullAndAnEmptyPath) {
  for (const char* path : {static_cast<const char*>(nullptr), ""}) {
    const TraceSession session(5);
    EXPECT_EQ(CDirectory::RemoveDirectory(path, WITH_PARENT), 0);
    EXPECT_THAT(session.Texts(), ElementsAre(Line("Remove directory \"\"")));
  }
}

TEST_F(DirectoryTest, KeepsHiddenFilesAndWhatHoldsThem) {
  Make("a");
  Make(".hidden");
  EXPECT_THAT(Lines(0), ElementsAre(Line("Remove directory \"" + m_strTop + "\""),
                                    Line("Found file: \"" + Top("a\"")),
                                    Line("Remove file \"" + Top("a\" OK!")),
                                    Line("Remove directory parent \"" + m_strTop + "/\""),
                                    Line("ERROR cannot remove parent directory \"" + m_strTop +
                                         "/\": Directory not empty\n")));
  EXPECT_TRUE(fs::exists(Top(".hidden")));
  EXPECT_FALSE(fs::exists(Top("a")));
}

TEST_F(DirectoryTest, KeepsHiddenDirectoriesWithoutALook) {
  Make(".hidden/a");
  EXPECT_EQ(Remove(WITHOUT_PARENT), 1);
  EXPECT_TRUE(fs::exists(Top(".hidden/a")));
}

TEST_F(DirectoryTest, ReportsEachDirectoryAboveAFailure) {
  Make("a/b/.hidden");
  Make("c");
  const std::vector<std::string> lines = Lines(0, WITHOUT_PARENT);
  ASSERT_EQ(lines.size(), 9U);
  EXPECT_EQ(lines[6], Line("ERROR cannot remove parent directory \"" + Top("a/b") +
                           "/\": Directory not empty\n"));
  EXPECT_EQ(lines[7], Line("ERROR cannot remove directory \"" + Top("a/b\": Directory not empty")));
  EXPECT_EQ(lines[8], Line("ERROR cannot remove directory \"" + Top("a\": Directory not empty")));
  EXPECT_TRUE(fs::exists(Top("c")));
}

TEST_F(DirectoryTest, ShowsNoNameForADirectoryThatCannotBeListed) {
  fs::remove(m_strTop);
  EXPECT_THAT(
      Lines(0),
      ElementsAre(Line("Remove directory \"" + m_strTop + "\""),
                  Line("scandir for directory \"\" failed; ## ERROR: No such file or directory")));
}

TEST_F(DirectoryTest, ReportsASubdirectoryThatCannotBeListed) {
  Make("a/b");
  Make("c");
  ASSERT_EQ(chmod(Top("a").c_str(), 0300), 0);
  const DroppedCapabilities dropped;
  EXPECT_THAT(
      Lines(0),
      ElementsAre(Line("Remove directory \"" + m_strTop + "\""), Line("Found dir: \"" + Top("a\"")),
                  Line("Remove directory \"" + Top("a\"")),
                  Line("scandir for directory \"\" failed; ## ERROR: Permission denied"),
                  Line("ERROR cannot remove directory \"" + Top("a\": Permission denied"))));
  EXPECT_TRUE(fs::exists(Top("c")));
}

TEST_F(DirectoryTest, RemovesAFileWithOneCall) {
  Make("a");
  Make("b/c");
  g_oCalls.clear();
  EXPECT_EQ(Remove(), 1);
  EXPECT_THAT(g_oCalls, ElementsAre("unlink", "unlink"));
}

TEST_F(DirectoryTest, RemovesAReadOnlyFileAndLeavesItsOtherNameAsItIs) {
  Make("a");
  fs::create_hard_link(Top("a"), m_oScratch.Path("kept"));
  ASSERT_EQ(chmod(Top("a").c_str(), 0400), 0);
  EXPECT_EQ(Remove(), 1);
  EXPECT_EQ(fs::status(m_oScratch.Path("kept")).permissions(), fs::perms(0400));
}

TEST_F(DirectoryTest, MakesAFileThatCannotBeRemovedWritableForAllAndTriesAgain) {
  Make("a");
  ASSERT_EQ(chmod(Top("a").c_str(), 0), 0);
  g_nUnlinksToFail = 1;
  EXPECT_THAT(Lines(1, WITHOUT_PARENT), ElementsAre(Line("Remove directory \"" + m_strTop + "\""),
                                                    Line("Found file: \"" + Top("a\"")),
                                                    Line("Remove file \"" + Top("a\" OK!"))));
  EXPECT_FALSE(fs::exists(Top("a")));
  Make("a");
  ASSERT_EQ(chmod(Top("a").c_str(), 0), 0);
  g_nUnlinksToFail = 2;
  EXPECT_EQ(Remove(), 0);
  EXPECT_EQ(fs::status(Top("a")).permissions(), fs::perms(0777));
}

TEST_F(DirectoryTest, NeverChangesTheModeOfAFileThatHasAnotherName) {
  Make("a");
  fs::create_hard_link(Top("a"), m_oScratch.Path("kept"));
  ASSERT_EQ(chmod(Top("a").c_str(), 0600), 0);
  g_nUnlinksToFail = 1;
  EXPECT_EQ(Remove(), 0);
  EXPECT_TRUE(fs::exists(Top("a")));
  EXPECT_EQ(fs::status(m_oScratch.Path("kept")).permissions(), fs::perms(0600));
}

TEST_F(DirectoryTest, NeverChangesTheModeOfWhatALinkLeadsTo) {
  const std::string target = m_oScratch.Write("target", "content");
  ASSERT_EQ(chmod(target.c_str(), 0600), 0);
  fs::create_symlink(target, Top("link"));
  g_nUnlinksToFail = 1;
  EXPECT_EQ(Remove(), 0);
  EXPECT_EQ(fs::status(target).permissions(), fs::perms(0600));
}

TEST_F(DirectoryTest, TriesAFileAgainWhoseModeCannotBeChanged) {
  Make("a");
  g_nUnlinksToFail = 1;
  g_bChangeModeFails = true;
  EXPECT_THAT(Lines(1, WITHOUT_PARENT), ElementsAre(Line("Remove directory \"" + m_strTop + "\""),
                                                    Line("Found file: \"" + Top("a\"")),
                                                    Line("ERROR cannot change mode of file \"" +
                                                         Top("a\": Permission denied")),
                                                    Line("Remove file \"" + Top("a\" OK!"))));
  EXPECT_FALSE(fs::exists(Top("a")));
}

TEST_F(DirectoryTest, LooksAtEntriesWhoseKindTheListingDoesNotTell) {
  Make("a/b");
  Make("c");
  ASSERT_EQ(mkfifo(Top("pipe").c_str(), 0600), 0);
  g_bKindsAreUnknown = true;
  EXPECT_EQ(Remove(WITHOUT_PARENT), 1);
  EXPECT_FALSE(fs::exists(Top("a")));
  EXPECT_FALSE(fs::exists(Top("c")));
  EXPECT_TRUE(fs::exists(Top("pipe")));
}

TEST_F(DirectoryTest, StopsAtAFileThatCannotBeRemoved) {
  Make("b/a");
  Make("b/c");
  Make("d");
  ASSERT_EQ(chmod(Top("b").c_str(), 0500), 0);
  const DroppedCapabilities dropped;
  EXPECT_THAT(
      Lines(0),
      ElementsAre(Line("Remove directory \"" + m_strTop + "\""), Line("Found dir: \"" + Top("b\"")),
                  Line("Remove directory \"" + Top("b\"")), Line("Found file: \"" + Top("b/a\"")),
                  Line("ERROR cannot remove file \"" + Top("b/a\": Permission denied")),
                  Line("ERROR cannot remove directory \"" + Top("b\": Permission denied"))));
  EXPECT_TRUE(fs::exists(Top("b/a")));
  EXPECT_TRUE(fs::exists(Top("b/c")));
  EXPECT_TRUE(fs::exists(Top("d")));
}

TEST_F(DirectoryTest, SkipsEntriesThatCannotBeLookedAt) {
  Make("a/b");
  Make("a/d/e");
  Make("c");
  ASSERT_EQ(chmod(Top("a").c_str(), 0400), 0);
  fs::create_symlink("missing", Top("dangling"));
  {
    const DroppedCapabilities dropped;
    const TraceSession session(5);
    EXPECT_EQ(CDirectory::RemoveDirectory(Top("a").c_str(), WITHOUT_PARENT), 1);
    EXPECT_THAT(session.Texts(), ElementsAre(Line("Remove directory \"" + Top("a\""))));
  }
  EXPECT_TRUE(fs::exists(Top("a/b")));
  ASSERT_EQ(chmod(Top("a").c_str(), 0700), 0);
  EXPECT_EQ(Remove(WITHOUT_PARENT), 1);
  EXPECT_TRUE(fs::is_symlink(Top("dangling")));
  EXPECT_FALSE(fs::exists(Top("c")));
}

TEST_F(DirectoryTest, LeavesOtherKindsOfEntriesWithoutATrace) {
  ASSERT_EQ(mkfifo(Top("pipe").c_str(), 0600), 0);
  EXPECT_THAT(Lines(1, WITHOUT_PARENT), ElementsAre(Line("Remove directory \"" + m_strTop + "\"")));
  EXPECT_TRUE(fs::exists(Top("pipe")));
}

TEST_F(DirectoryTest, RemovesALinkToAFileAndLeavesItsTargetAlone) {
  const std::string target = m_oScratch.Write("target", "content");
  ASSERT_EQ(chmod(target.c_str(), 0400), 0);
  fs::create_symlink(target, Top("link"));
  EXPECT_THAT(Lines(1, WITHOUT_PARENT), ElementsAre(Line("Remove directory \"" + m_strTop + "\""),
                                                    Line("Found file: \"" + Top("link\"")),
                                                    Line("Remove file \"" + Top("link\" OK!"))));
  EXPECT_FALSE(fs::is_symlink(Top("link")));
  EXPECT_EQ(fs::status(target).permissions(), fs::perms(0400));
}

TEST_F(DirectoryTest, EmptiesTheTargetOfALinkToADirectoryAndFailsAtTheLink) {
  m_oScratch.Write("target/a", "");
  fs::create_symlink(m_oScratch.Path("target"), Top("link"));
  Make("z");
  EXPECT_THAT(
      Lines(0),
      ElementsAre(
          Line("Remove directory \"" + m_strTop + "\""), Line("Found dir: \"" + Top("link\"")),
          Line("Remove directory \"" + Top("link\"")), Line("Found file: \"" + Top("link/a\"")),
          Line("Remove file \"" + Top("link/a\" OK!")),
          Line("Remove directory parent \"" + Top("link/\"")),
          Line("ERROR cannot remove parent directory \"" + Top("link/\": Not a directory\n")),
          Line("ERROR cannot remove directory \"" + Top("link\": Not a directory"))));
  EXPECT_TRUE(fs::is_empty(m_oScratch.Path("target")));
  EXPECT_TRUE(fs::exists(Top("z")));
}

TEST_F(DirectoryTest, TakesALinkThatStatReportsForAFile) {
  m_oScratch.Write("target/a", "");
  fs::create_symlink(m_oScratch.Path("target"), Top("link"));
  g_bStatReportsLinks = true;
  EXPECT_EQ(Remove(), 1);
  g_bStatReportsLinks = false;
  EXPECT_FALSE(fs::exists(m_strTop));
  EXPECT_TRUE(fs::exists(m_oScratch.Path("target/a")));
}

TEST_F(DirectoryTest, NeedsNoDescriptorBesidesTheListing) {
  Make("a");
  Make("b/c");
  Make("d");
  g_bOpenFails = true;
  EXPECT_EQ(Remove(), 1);
  EXPECT_FALSE(fs::exists(m_strTop));
}

TEST_F(DirectoryTest, WritesEachLineAtItsLevel) {
  const auto levelOf = [&](const char* format, const std::vector<std::string>& files) {
    return LevelOf(format, [&] {
      for (const std::string& file : files) {
        Make(file);
      }
      Remove();
    });
  };
  EXPECT_EQ(levelOf("\nCDirectory          : Remove directory \"%s\"", {"a"}), 2U);
  EXPECT_EQ(levelOf("\nCDirectory          : Found file: \"%s\"", {"a"}), 2U);
  EXPECT_EQ(levelOf("\nCDirectory          : Remove file \"%s\" OK!", {"a"}), 3U);
  EXPECT_EQ(levelOf("\nCDirectory          : Found dir: \"%s\"", {"a/b"}), 2U);
  EXPECT_EQ(levelOf("\nCDirectory          : Remove directory \"%s\" OK!", {"a/b"}), 3U);
  EXPECT_EQ(levelOf("\nCDirectory          : Remove directory parent \"%s\"", {"a"}), 3U);
  EXPECT_EQ(levelOf("\nCDirectory          : Remove directory parent \"%s\" OK!", {"a"}), 3U);
  fs::remove_all(m_strTop);
  EXPECT_EQ(
      levelOf("\nCDirectory          : scandir for directory \"%s\" failed; ## ERROR: %s", {}), 3U);
  g_bChangeModeFails = true;
  g_nUnlinksToFail = 1;
  EXPECT_EQ(levelOf("\nCDirectory          : ERROR cannot change mode of file \"%s\": %s", {"a"}),
            1U);
  EXPECT_EQ(
      levelOf("\nCDirectory          : ERROR cannot remove parent directory \"%s\": %s\n", {".a"}),
      1U);
  EXPECT_EQ(levelOf("\nCDirectory          : ERROR cannot remove directory \"%s\": %s", {"a/.b"}),
            1U);
  fs::remove_all(Top("a"));
  fs::remove(Top(".a"));
  Make("d/e");
  ASSERT_EQ(chmod(Top("d").c_str(), 0500), 0);
  const DroppedCapabilities dropped;
  EXPECT_EQ(levelOf("\nCDirectory          : ERROR cannot remove file \"%s\": %s", {}), 1U);
}

TEST_F(DirectoryTest, LosesNothingWhenTheSinkThrows) {
  const auto openDescriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = openDescriptors();
  for (const char* format :
       {"\nCDirectory          : Remove directory \"%s\"",
        "\nCDirectory          : Found dir: \"%s\"", "\nCDirectory          : Found file: \"%s\"",
        "\nCDirectory          : Remove file \"%s\" OK!",
        "\nCDirectory          : Remove directory \"%s\" OK!"}) {
    Make("a/b");
    TraceSession session(5);
    session.ThrowAt(format);
    EXPECT_THROW(Remove(), std::runtime_error) << format;
  }
  EXPECT_EQ(openDescriptors(), before);
}
