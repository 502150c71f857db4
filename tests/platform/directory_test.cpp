#include "platform/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/descriptor_count.h"
#include "tests/support/dropped_capabilities.h"
#include "tests/support/level_lines.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

namespace {

namespace fs = std::filesystem;

constexpr bool WITH_PARENT = true;
constexpr bool WITHOUT_PARENT = false;

class DirectoryTest : public testing::Test {
 protected:
  DirectoryTest() { fs::create_directory(m_strTop); }

  std::string Top(const std::string& name) const { return m_strTop + "/" + name; }

  void Make(const std::string& name) const { m_oScratch.Write("top/" + name, "content"); }

  int32_t Remove(bool removeParent = WITH_PARENT) const {
    return CDirectory::RemoveDirectory(m_strTop.c_str(), removeParent);
  }

  // Expects the removal of what `prepare` makes to have that result and to write those lines.
  void ExpectRemoval(int32_t result, bool removeParent, const std::vector<LevelLine>& lines,
                     const std::function<void()>& prepare,
                     const std::function<int32_t()>& remove = nullptr) const {
    std::vector<LevelLine> whole;
    for (const LevelLine& line : lines) {
      whole.push_back({line.level, "\nCDirectory          : " + line.text});
    }
    int round = 0;
    ExpectLines(whole, [&] {
      std::error_code ignored;
      fs::rename(m_strTop, m_oScratch.Path("done" + std::to_string(++round)), ignored);
      fs::create_directory(m_strTop);
      prepare();
      EXPECT_EQ(remove ? remove() : Remove(removeParent), result);
    });
  }

  const ScratchDirectory m_oScratch;
  const std::string m_strTop = m_oScratch.Path("top");
};

}  // namespace

TEST_F(DirectoryTest, RemovesATreeDepthFirstInSortedOrder) {
  const std::string& top = m_strTop;
  const auto file = [&](const std::string& name) {
    return std::vector<LevelLine>{{2, "Found file: \"" + top + name + "\""},
                                  {3, "Remove file \"" + top + name + "\" OK!"}};
  };
  const auto enter = [&](const std::string& name) {
    return std::vector<LevelLine>{{2, "Found dir: \"" + top + name + "\""},
                                  {2, "Remove directory \"" + top + name + "\""}};
  };
  const auto leave = [&](const std::string& name) {
    return std::vector<LevelLine>{{3, "Remove directory parent \"" + top + name + "/\""},
                                  {3, "Remove directory parent \"" + top + name + "/\" OK!"},
                                  {3, "Remove directory \"" + top + name + "\" OK!"}};
  };
  std::vector<LevelLine> expected = {{2, "Remove directory \"" + top + "\""}};
  for (const auto& lines :
       {enter("/B"), file("/B/w"), leave("/B"), file("/a"), enter("/b"), enter("/b/a"),
        file("/b/a/x"), leave("/b/a"), file("/b/y"), leave("/b"), file("/z")}) {
    expected.insert(expected.end(), lines.begin(), lines.end());
  }
  expected.push_back({3, "Remove directory parent \"" + top + "/\""});
  expected.push_back({3, "Remove directory parent \"" + top + "/\" OK!"});
  ExpectRemoval(1, WITH_PARENT, expected, [&] {
    for (const char* name : {"z", "b/y", "b/a/x", "B/w", "a"}) {
      Make(name);
    }
  });
  EXPECT_FALSE(fs::exists(top));
}

TEST_F(DirectoryTest, KeepsTheDirectoryItselfWithoutRemoveParent) {
  Make("a");
  Make("b/c");
  EXPECT_EQ(Remove(WITHOUT_PARENT), 1);
  EXPECT_TRUE(fs::is_empty(m_strTop));
}

TEST_F(DirectoryTest, RemovesAnEmptyDirectory) {
  EXPECT_EQ(Remove(WITHOUT_PARENT), 1);
  EXPECT_TRUE(fs::exists(m_strTop));
  EXPECT_EQ(Remove(), 1);
  EXPECT_FALSE(fs::exists(m_strTop));
}

TEST_F(DirectoryTest, AcceptsARelativePathThatEndsInASlash) {
  Make("a/b");
  fs::current_path(m_oScratch.Path());
  EXPECT_EQ(CDirectory::RemoveDirectory("top/", WITH_PARENT), 1);
  EXPECT_FALSE(fs::exists(m_strTop));
  fs::current_path("/");
}

TEST_F(DirectoryTest, RefusesANullAndAnEmptyPath) {
  for (const char* path : {static_cast<const char*>(nullptr), ""}) {
    ExpectRemoval(
        0, WITH_PARENT, {{2, "Remove directory \"\""}}, [] {},
        [&] { return CDirectory::RemoveDirectory(path, WITH_PARENT); });
  }
}

TEST_F(DirectoryTest, KeepsHiddenFilesAndWhatHoldsThem) {
  ExpectRemoval(
      0, WITH_PARENT,
      {{2, "Remove directory \"" + m_strTop + "\""},
       {2, "Found file: \"" + Top("a\"")},
       {3, "Remove file \"" + Top("a\" OK!")},
       {3, "Remove directory parent \"" + m_strTop + "/\""},
       {1, "ERROR cannot remove parent directory \"" + m_strTop + "/\": Directory not empty\n"}},
      [&] {
        Make("a");
        Make(".hidden");
      });
  EXPECT_TRUE(fs::exists(Top(".hidden")));
  EXPECT_FALSE(fs::exists(Top("a")));
}

TEST_F(DirectoryTest, KeepsHiddenDirectoriesWithoutALook) {
  Make(".hidden/a");
  EXPECT_EQ(Remove(WITHOUT_PARENT), 1);
  EXPECT_TRUE(fs::exists(Top(".hidden/a")));
}

TEST_F(DirectoryTest, ReportsEachDirectoryAboveAFailure) {
  ExpectRemoval(
      0, WITHOUT_PARENT,
      {{2, "Remove directory \"" + m_strTop + "\""},
       {2, "Found dir: \"" + Top("a\"")},
       {2, "Remove directory \"" + Top("a\"")},
       {2, "Found dir: \"" + Top("a/b\"")},
       {2, "Remove directory \"" + Top("a/b\"")},
       {3, "Remove directory parent \"" + Top("a/b/\"")},
       {1, "ERROR cannot remove parent directory \"" + Top("a/b/\": Directory not empty\n")},
       {1, "ERROR cannot remove directory \"" + Top("a/b\": Directory not empty")},
       {1, "ERROR cannot remove directory \"" + Top("a\": Directory not empty")}},
      [&] {
        Make("a/b/.hidden");
        Make("c");
      });
  EXPECT_TRUE(fs::exists(Top("c")));
}

TEST_F(DirectoryTest, ShowsNoNameForADirectoryThatCannotBeListed) {
  ExpectRemoval(0, WITH_PARENT,
                {{2, "Remove directory \"" + m_strTop + "\""},
                 {3, "scandir for directory \"\" failed; ## ERROR: No such file or directory"}},
                [&] { fs::remove(m_strTop); });
}

TEST_F(DirectoryTest, ReportsASubdirectoryThatCannotBeListed) {
  ExpectRemoval(
      0, WITH_PARENT,
      {{2, "Remove directory \"" + m_strTop + "\""},
       {2, "Found dir: \"" + Top("a\"")},
       {2, "Remove directory \"" + Top("a\"")},
       {3, "scandir for directory \"\" failed; ## ERROR: Permission denied"},
       {1, "ERROR cannot remove directory \"" + Top("a\": Permission denied")}},
      [&] {
        Make("a/b");
        Make("c");
        ASSERT_EQ(chmod(Top("a").c_str(), 0300), 0);
      },
      [&] {
        const DroppedCapabilities dropped;
        return Remove();
      });
  EXPECT_TRUE(fs::exists(Top("c")));
}

TEST_F(DirectoryTest, RemovesAFileWithOneCall) {
  Make("a");
  Make("b/c");
  const auto unlinks = calls::unlinkat.Watch();
  const auto looks = calls::fstatat.Watch();
  const auto changes = calls::syscall.Watch();
  EXPECT_EQ(Remove(), 1);
  EXPECT_EQ(unlinks.GetCount(), 2);
  EXPECT_EQ(looks.GetCount() + changes.GetCount(), 0);
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
  const auto failing = calls::unlinkat.Fail(EACCES, 0, 2);
  EXPECT_EQ(Remove(), 0);
  EXPECT_EQ(fs::status(Top("a")).permissions(), fs::perms(0777));
  const auto failingOnce = calls::unlinkat.Fail(EACCES, 0, 1);
  EXPECT_EQ(Remove(), 1);
}

TEST_F(DirectoryTest, NeverChangesTheModeOfAFileThatHasAnotherName) {
  Make("a");
  fs::create_hard_link(Top("a"), m_oScratch.Path("kept"));
  ASSERT_EQ(chmod(Top("a").c_str(), 0600), 0);
  const auto failing = calls::unlinkat.Fail(EACCES, 0, 1);
  EXPECT_EQ(Remove(), 0);
  EXPECT_TRUE(fs::exists(Top("a")));
  EXPECT_EQ(fs::status(m_oScratch.Path("kept")).permissions(), fs::perms(0600));
}

TEST_F(DirectoryTest, NeverChangesTheModeOfWhatALinkLeadsTo) {
  const std::string target = m_oScratch.Write("target", "content");
  ASSERT_EQ(chmod(target.c_str(), 0600), 0);
  fs::create_symlink(target, Top("link"));
  const auto failing = calls::unlinkat.Fail(EACCES, 0, 1);
  EXPECT_EQ(Remove(), 0);
  EXPECT_EQ(fs::status(target).permissions(), fs::perms(0600));
}

TEST_F(DirectoryTest, TriesAFileAgainWhoseModeCannotBeChanged) {
  int failures = 0;
  const auto unlinks =
      calls::unlinkat.Answer([&failures](int directory, const char* name, int flags) {
        return failures-- > 0 ? calls::unlinkat.FailNow(EACCES, directory, name, flags)
                              : calls::unlinkat.Real(directory, name, flags);
      });
  const auto changes = calls::syscall.Fail(EACCES);
  ExpectRemoval(1, WITHOUT_PARENT,
                {{2, "Remove directory \"" + m_strTop + "\""},
                 {2, "Found file: \"" + Top("a\"")},
                 {1, "ERROR cannot change mode of file \"" + Top("a\": Permission denied")},
                 {3, "Remove file \"" + Top("a\" OK!")}},
                [&] {
                  Make("a");
                  failures = 1;
                });
  EXPECT_FALSE(fs::exists(Top("a")));
}

TEST_F(DirectoryTest, LooksAtEntriesWhoseKindTheListingDoesNotTell) {
  Make("a/b");
  Make("c");
  ASSERT_EQ(mkfifo(Top("pipe").c_str(), 0600), 0);
  const auto unknown = calls::scandir.Answer(
      [](const char* path, dirent*** entries, DirectoryFilter filter, DirectoryOrder order) {
        const int count = calls::scandir.Real(path, entries, filter, order);
        for (int index = 0; index < count; ++index) {
          (*entries)[index]->d_type = DT_UNKNOWN;
        }
        return count;
      });
  EXPECT_EQ(Remove(WITHOUT_PARENT), 1);
  EXPECT_FALSE(fs::exists(Top("a")));
  EXPECT_FALSE(fs::exists(Top("c")));
  EXPECT_TRUE(fs::exists(Top("pipe")));
}

TEST_F(DirectoryTest, StopsAtAFileThatCannotBeRemoved) {
  ExpectRemoval(
      0, WITH_PARENT,
      {{2, "Remove directory \"" + m_strTop + "\""},
       {2, "Found dir: \"" + Top("b\"")},
       {2, "Remove directory \"" + Top("b\"")},
       {2, "Found file: \"" + Top("b/a\"")},
       {1, "ERROR cannot remove file \"" + Top("b/a\": Permission denied")},
       {1, "ERROR cannot remove directory \"" + Top("b\": Permission denied")}},
      [&] {
        Make("b/a");
        Make("b/c");
        Make("d");
        ASSERT_EQ(chmod(Top("b").c_str(), 0500), 0);
      },
      [&] {
        const DroppedCapabilities dropped;
        return Remove();
      });
  for (const char* name : {"b/a", "b/c", "d"}) {
    EXPECT_TRUE(fs::exists(Top(name))) << name;
  }
}

TEST_F(DirectoryTest, SkipsEntriesThatCannotBeLookedAtWithoutATrace) {
  ExpectRemoval(
      1, WITHOUT_PARENT, {{2, "Remove directory \"" + Top("a\"")}},
      [&] {
        Make("a/b");
        Make("a/d/e");
        ASSERT_EQ(chmod(Top("a").c_str(), 0400), 0);
      },
      [&] {
        const DroppedCapabilities dropped;
        return CDirectory::RemoveDirectory(Top("a").c_str(), WITHOUT_PARENT);
      });
  EXPECT_TRUE(fs::exists(Top("a/b")));
  EXPECT_TRUE(fs::exists(Top("a/d/e")));
}

TEST_F(DirectoryTest, LeavesOtherKindsOfEntriesAndLinksToNothingWithoutATrace) {
  ExpectRemoval(1, WITHOUT_PARENT, {{2, "Remove directory \"" + m_strTop + "\""}}, [&] {
    ASSERT_EQ(mkfifo(Top("pipe").c_str(), 0600), 0);
    fs::create_symlink("missing", Top("dangling"));
  });
  EXPECT_TRUE(fs::exists(Top("pipe")));
  EXPECT_TRUE(fs::is_symlink(Top("dangling")));
}

TEST_F(DirectoryTest, RemovesALinkToAFileAndLeavesItsTargetAlone) {
  const std::string target = m_oScratch.Write("target", "content");
  fs::create_symlink(target, Top("link"));
  EXPECT_EQ(Remove(), 1);
  EXPECT_TRUE(fs::exists(target));
}

TEST_F(DirectoryTest, EmptiesTheTargetOfALinkToADirectoryAndFailsAtTheLink) {
  ExpectRemoval(0, WITH_PARENT,
                {{2, "Remove directory \"" + m_strTop + "\""},
                 {2, "Found dir: \"" + Top("link\"")},
                 {2, "Remove directory \"" + Top("link\"")},
                 {2, "Found file: \"" + Top("link/a\"")},
                 {3, "Remove file \"" + Top("link/a\" OK!")},
                 {3, "Remove directory parent \"" + Top("link/\"")},
                 {1, "ERROR cannot remove parent directory \"" + Top("link/\": Not a directory\n")},
                 {1, "ERROR cannot remove directory \"" + Top("link\": Not a directory")}},
                [&] {
                  m_oScratch.Write("target/a", "");
                  fs::create_symlink(m_oScratch.Path("target"), Top("link"));
                  Make("z");
                });
  EXPECT_TRUE(fs::is_empty(m_oScratch.Path("target")));
  EXPECT_TRUE(fs::exists(Top("z")));
}

TEST_F(DirectoryTest, TakesALinkThatStatReportsForAFile) {
  m_oScratch.Write("target/a", "");
  fs::create_symlink(m_oScratch.Path("target"), Top("link"));
  const auto links = calls::fstatat.Answer(
      [](int directory, const char* path, struct stat* status, int /*flags*/) {
        return calls::fstatat.Real(directory, path, status, AT_SYMLINK_NOFOLLOW);
      });
  EXPECT_EQ(Remove(), 1);
  EXPECT_FALSE(fs::exists(m_strTop));
  EXPECT_TRUE(fs::exists(m_oScratch.Path("target/a")));
}

TEST_F(DirectoryTest, NeedsNoDescriptorBesidesTheListing) {
  Make("a");
  Make("b/c");
  Make("d");
  const auto failing = calls::open.Fail(EMFILE);
  EXPECT_EQ(Remove(), 1);
  EXPECT_FALSE(fs::exists(m_strTop));
}

TEST_F(DirectoryTest, LosesNothingWhenTheSinkThrows) {
  const ptrdiff_t before = CountDescriptors();
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
  EXPECT_EQ(CountDescriptors(), before);
}
