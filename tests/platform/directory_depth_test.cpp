// Trees that somebody made to break the removal.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/directory.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/trace_session.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t SMALL_STACK = 128 * 1024;

// Removes a directory on a thread with a small stack.
int32_t RemoveOnSmallStack(const std::string& path) {
  struct Call {
    const char* path;
    int32_t result;
  } call = {path.c_str(), -1};
  pthread_attr_t attribute;
  EXPECT_EQ(pthread_attr_init(&attribute), 0);
  EXPECT_EQ(pthread_attr_setstacksize(&attribute, SMALL_STACK), 0);
  pthread_t thread = 0;
  const auto run = [](void* argument) -> void* {
    auto* forThread = static_cast<Call*>(argument);
    forThread->result = CDirectory::RemoveDirectory(forThread->path, true);
    return nullptr;
  };
  EXPECT_EQ(pthread_create(&thread, &attribute, run, &call), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attribute);
  return call.result;
}

class DirectoryDepthTest : public testing::Test {
 protected:
  ~DirectoryDepthTest() override {
    // From the bottom up, by steps of one directory: no path is as long as the tree is deep.
    fs::current_path(m_oScratch.Path());
    int depth = 0;
    while (chdir("d") == 0) {
      ++depth;
    }
    while (depth-- > 0) {
      unlink("file");
      EXPECT_EQ(chdir(".."), 0);
      rmdir("d");
    }
    fs::current_path("/");
  }

  // Makes a chain of directories, each with a file in it, below the scratch directory.
  void MakeChain(size_t depth) const {
    fs::current_path(m_oScratch.Path());
    for (size_t level = 0; level < depth; ++level) {
      ASSERT_EQ(mkdir("d", 0700), 0);
      ASSERT_EQ(chdir("d"), 0);
      close(open("file", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    }
    fs::current_path("/");
  }

  // The number of directories whose files still have a path.
  size_t DeepestChain() const {
    return (PATH_MAX - 1 - m_oScratch.Path().size() - std::string("/file").size()) / 2;
  }

  const ScratchDirectory m_oScratch;
};

}  // namespace

TEST_F(DirectoryDepthTest, RemovesAsDeepAsPathsReachWithoutNeedOfStack) {
  MakeChain(DeepestChain());
  EXPECT_EQ(RemoveOnSmallStack(m_oScratch.Path("d")), 1);
  EXPECT_FALSE(fs::exists(m_oScratch.Path("d")));
}

TEST_F(DirectoryDepthTest, StopsWhereNoPathReaches) {
  const size_t depth = DeepestChain();
  MakeChain(depth + 100);
  EXPECT_EQ(RemoveOnSmallStack(m_oScratch.Path("d")), 0);
  fs::current_path(m_oScratch.Path());
  for (size_t level = 0; level <= depth; ++level) {
    ASSERT_EQ(chdir("d"), 0);
  }
  EXPECT_EQ(access("file", F_OK), 0) << "has no valid path and is gone";
}

TEST_F(DirectoryDepthTest, EndsInAMazeOfLinks) {
  for (const char* name : {"a", "b", "c", "d"}) {
    fs::create_directory_symlink(".", m_oScratch.Path(name));
  }
  m_oScratch.Write("file", "");
  const TraceSession session(5);
  EXPECT_EQ(CDirectory::RemoveDirectory(m_oScratch.Path().c_str(), true), 0);
  // The system follows 40 links in a path.
  EXPECT_EQ(session.Count("\nCDirectory          : Found dir: \"%s\""), 40);
  EXPECT_EQ(session.Count("\nCDirectory          : ERROR cannot remove directory \"%s\": %s"), 40);
  EXPECT_FALSE(fs::exists(m_oScratch.Path("file"))) << "removed through the links";
  fs::remove(m_oScratch.Path("d"));
}

TEST_F(DirectoryDepthTest, RemovesManyFilesInOneDirectory) {
  for (int number = 0; number < 5000; ++number) {
    m_oScratch.Write("wide/" + std::to_string(number), "");
  }
  EXPECT_EQ(RemoveOnSmallStack(m_oScratch.Path("wide")), 1);
  EXPECT_FALSE(fs::exists(m_oScratch.Path("wide")));
}

TEST_F(DirectoryDepthTest, RemovesNamesOfAnyCharactersAndTheGreatestLength) {
  const std::vector<std::string> names = {
      std::string(255, 'x'), "%s%n", "\n", "\xff\xfe", " ", "~"};
  for (const std::string& name : names) {
    m_oScratch.Write("odd/" + name, "");
  }
  const TraceSession session(5);
  EXPECT_EQ(CDirectory::RemoveDirectory(m_oScratch.Path("odd").c_str(), true), 1);
  EXPECT_EQ(session.Count("\nCDirectory          : Remove file \"%s\" OK!"), 6);
}
