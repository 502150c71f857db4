// The sample collector as the module runs it: a process that finds its data directory in the
// registry.

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/file.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/descriptor.h"
#include "platform/registry/registry_file.h"
#include "tests/support/built_files.h"
#include "tests/support/installed_registry.h"
#include "tests/support/program.h"
#include "tests/support/registry_files.h"
#include "tests/support/scratch_directory.h"

namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr char ARCHIVE[] = "Talvor_Data.zip";
constexpr char PART[] = "Talvor_Data.zip.part";

struct ReaderFreer {
  void operator()(archive* reader) const { archive_read_free(reader); }
};

// The members of a zip file by name.
std::map<std::string, std::string> ReadArchive(const std::string& path) {
  std::map<std::string, std::string> members;
  const std::unique_ptr<archive, ReaderFreer> reader(archive_read_new());
  archive_read_support_format_zip(reader.get());
  EXPECT_EQ(archive_read_open_filename(reader.get(), path.c_str(), 4096), ARCHIVE_OK);
  archive_entry* entry = nullptr;
  while (archive_read_next_header(reader.get(), &entry) == ARCHIVE_OK) {
    std::string content(static_cast<size_t>(archive_entry_size(entry)), '\0');
    archive_read_data(reader.get(), content.data(), content.size());
    members[archive_entry_pathname(entry)] = content;
  }
  return members;
}

class SampleCollectorTest : public RegistryFilesTest {
 protected:
  // Makes the registry name the data directory.
  static void Install(const std::string& dataRoot) {
    WriteFile(REGISTRY_FILE, InstalledRegistry("DataRoot=s=" + dataRoot + "\n",
                                               "Talvor=s=HKEY_LOCAL_MACHINE\\SOFTWARE\\Talvor\n"));
  }

  static std::vector<std::string> Names(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  // Waits until the collector has begun to fill its temporary file.
  static bool WaitForPart(const std::string& directory) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
      std::error_code error;
      if (fs::file_size(directory + "/" + PART, error) > 0 && !error) {
        return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

  ScratchDirectory m_oData;
};

TEST_F(SampleCollectorTest, PacksDataOfThisMachine) {
  Install(m_oData.Path());
  Program collector({SAMPLE_COLLECTOR});
  EXPECT_EQ(collector.Wait(), 0) << collector.Errors();
  EXPECT_EQ(collector.Output() + collector.Errors(), "");
  EXPECT_THAT(Names(m_oData.Path()), ElementsAre(ARCHIVE));

  auto members = ReadArchive(m_oData.Path(ARCHIVE));
  EXPECT_EQ(members["os-release"], ReadFile("/etc/os-release"));
  EXPECT_THAT(members["cpuinfo"], HasSubstr("processor"));
  EXPECT_THAT(members["meminfo"], HasSubstr("MemTotal:"));
  EXPECT_THAT(members["mounts"], HasSubstr(" /proc proc "));
  EXPECT_THAT(members["processes"], HasSubstr("\tTalvor\n"));
  EXPECT_THAT(members["contents.txt"], HasSubstr("\nkernel.log: "));
  EXPECT_THAT(
      members["contents.txt"],
      HasSubstr("os-release: " + std::to_string(members["os-release"].size()) + " bytes\n"));
}

TEST_F(SampleCollectorTest, SamplesTheLoadOncePerSecond) {
  Install(m_oData.Path());
  Program collector({SAMPLE_COLLECTOR});
  ASSERT_EQ(collector.Wait(), 0) << collector.Errors();
  auto members = ReadArchive(m_oData.Path(ARCHIVE));
  const double first = std::stod(members["samples/0/uptime"]);
  const double last = std::stod(members["samples/3/uptime"]);
  EXPECT_GE(last - first, 2.9);
  EXPECT_EQ(members.count("samples/4/uptime"), 0U);
  EXPECT_THAT(members["samples/3/loadavg"], MatchesRegex("[0-9. /]+\n"));
}

TEST_F(SampleCollectorTest, LeavesTheRegistryUntouched) {
  Install(m_oData.Path());
  const std::string before = ReadFile(REGISTRY_FILE);
  Program collector({SAMPLE_COLLECTOR});
  EXPECT_EQ(collector.Wait(), 0);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), before);
  EXPECT_THAT(Names(REGISTRY_DIRECTORY), ElementsAre("registry"));
}

TEST_F(SampleCollectorTest, MakesTheDataDirectoryAndReplacesWhatAKilledRunLeft) {
  const std::string data = m_oData.Path("made");
  Install(data);
  Program killed({SAMPLE_COLLECTOR});
  ASSERT_TRUE(WaitForPart(data));
  killed.Signal(SIGKILL);
  EXPECT_EQ(killed.Wait(), 128 + SIGKILL);
  EXPECT_THAT(Names(data), ElementsAre(PART));

  Program collector({SAMPLE_COLLECTOR});
  EXPECT_EQ(collector.Wait(), 0) << collector.Errors();
  EXPECT_THAT(Names(data), ElementsAre(ARCHIVE));
  EXPECT_EQ(fs::status(data + "/" + ARCHIVE).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(SampleCollectorTest, RemovesTheTemporaryFileWhenToldToStop) {
  Install(m_oData.Path());
  m_oData.Write(ARCHIVE, "from before");
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    Program collector({SAMPLE_COLLECTOR});
    ASSERT_TRUE(WaitForPart(m_oData.Path())) << collector.Errors();
    collector.Signal(signal);
    EXPECT_EQ(collector.Wait(), 1);
    EXPECT_THAT(
        collector.Errors(),
        MatchesRegex("Talvor: stopped by the signal \"[A-Za-z]+\"; no archive was created.\n"));
    EXPECT_THAT(Names(m_oData.Path()), ElementsAre(ARCHIVE));
  }
  EXPECT_EQ(m_oData.Read(ARCHIVE), "from before");
}

TEST_F(SampleCollectorTest, SaysWhatIsMissingInTheRegistry) {
  Program collector({SAMPLE_COLLECTOR});
  EXPECT_EQ(collector.Wait(), 1);
  EXPECT_EQ(
      collector.Errors(),
      "Talvor: the registry names no data directory; the value \"Talvor\" of the key "
      "\"HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\UUID\\5B2E9A40-7C13-4F8D-9A61-2D7E0C4B8F13\" "
      "must name a key with the subkey \"Setup\", and that must hold the text \"DataRoot\".\n");
}

TEST_F(SampleCollectorTest, FailsWhereItCannotWrite) {
  const std::string file = m_oData.Write("file", "");
  Install(file);
  Program inFile({SAMPLE_COLLECTOR});
  EXPECT_EQ(inFile.Wait(), 1);
  EXPECT_EQ(inFile.Errors(),
            "Talvor: cannot write \"" + file + "/" + PART + "\": Not a directory.\n");

  const std::string missing = m_oData.Path("no/such");
  Install(missing);
  Program inMissing({SAMPLE_COLLECTOR});
  EXPECT_EQ(inMissing.Wait(), 1);
  EXPECT_EQ(inMissing.Errors(), "Talvor: cannot make the data directory \"" + missing +
                                    "\": No such file or directory.\n");
}

TEST_F(SampleCollectorTest, RemovesTheTemporaryFileWhenItBecomesTooBig) {
  Install(m_oData.Path());
  // The library of the archive forgets its compressor when a write fails.
  Program collector(
      {"/bin/sh", "-c",
       std::string("ulimit -f 1; ASAN_OPTIONS=detect_leaks=0 exec ") + SAMPLE_COLLECTOR});
  EXPECT_EQ(collector.Wait(), 1);
  // The counters of a coverage build meet the same limit, and say so behind it.
  EXPECT_THAT(collector.Errors(), ContainsRegex("^Talvor: cannot write \".*\\.part\": .*\\.\n"));
  EXPECT_THAT(Names(m_oData.Path()), IsEmpty());
}

TEST_F(SampleCollectorTest, LeavesTheFileOfAnotherCollectorAlone) {
  Install(m_oData.Path());
  const std::string part = m_oData.Write(PART, "half");
  const CDescriptor other(open(part.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(other.Get(), LOCK_EX), 0);
  Program collector({SAMPLE_COLLECTOR});
  EXPECT_EQ(collector.Wait(), 1);
  EXPECT_EQ(collector.Errors(), "Talvor: another collector is writing \"" + part + "\".\n");
  EXPECT_EQ(m_oData.Read(PART), "half");
}

TEST_F(SampleCollectorTest, WritesThroughNoLink) {
  Install(m_oData.Path());
  const std::string target = m_oData.Write("target", "precious");
  fs::create_symlink(target, m_oData.Path(PART));
  Program symbolic({SAMPLE_COLLECTOR});
  EXPECT_EQ(symbolic.Wait(), 1);
  fs::remove(m_oData.Path(PART));
  fs::create_hard_link(target, m_oData.Path(PART));
  Program hard({SAMPLE_COLLECTOR});
  EXPECT_EQ(hard.Wait(), 1);
  EXPECT_THAT(hard.Errors(), HasSubstr("is not a file of this user; remove it.\n"));
  EXPECT_EQ(m_oData.Read("target"), "precious");
}

TEST_F(SampleCollectorTest, TakesNoArguments) {
  Program collector({SAMPLE_COLLECTOR, "--help"});
  EXPECT_EQ(collector.Wait(), 2);
  EXPECT_THAT(collector.Errors(), HasSubstr("takes no arguments"));
}

}  // namespace
