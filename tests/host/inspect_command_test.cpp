#include "host/commands.h"

#include <archive.h>
#include <archive_entry.h>
#include <gmock/gmock.h>
#include <rapidjson/document.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/size_text.h"
#include "tests/host/host_program.h"
#include "tests/support/built_files.h"

namespace {

using testing::HasSubstr;

struct WriterFreer {
  void operator()(archive* writer) const { archive_write_free(writer); }
};

struct EntryFreer {
  void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};

class InspectCommandTest : public HostProgramTest {
 protected:
  static HostResult Inspect(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {EM_HOST, "inspect"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Program program(command);
    const int exitCode = program.Wait();
    return {exitCode, program.Output(), program.Errors()};
  }

  // Writes a zip file whose members are called "member" and are not compressed. Returns its path.
  std::string WriteZip(const std::string& name, const std::vector<std::string>& members) const {
    std::string file = m_oFiles.Path(name);
    const std::unique_ptr<archive, WriterFreer> writer(archive_write_new());
    archive_write_set_format_zip(writer.get());
    archive_write_set_options(writer.get(), "zip:compression=store");
    archive_write_set_bytes_in_last_block(writer.get(), 1);
    EXPECT_EQ(archive_write_open_filename(writer.get(), file.c_str()), ARCHIVE_OK);
    for (const std::string& content : members) {
      const std::unique_ptr<archive_entry, EntryFreer> entry(archive_entry_new());
      archive_entry_set_pathname(entry.get(), "member");
      archive_entry_set_filetype(entry.get(), AE_IFREG);
      archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
      EXPECT_EQ(archive_write_header(writer.get(), entry.get()), ARCHIVE_OK);
      archive_write_data(writer.get(), content.data(), content.size());
    }
    EXPECT_EQ(archive_write_close(writer.get()), ARCHIVE_OK);
    return file;
  }

  // A zip file of that many bytes.
  std::string WriteZipOfSize(const std::string& name, size_t size) const {
    const size_t overhead = std::filesystem::file_size(WriteZip(name, {"x"})) - 1;
    std::string file = WriteZip(name, {std::string(size - overhead, 'x')});
    EXPECT_EQ(std::filesystem::file_size(file), size);
    return file;
  }

  rapidjson::Document InspectAsJson(const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = arguments;
    all.emplace_back("--json");
    rapidjson::Document document;
    document.Parse(Inspect(all).output.c_str());
    EXPECT_TRUE(document.IsObject());
    return document;
  }
};

}  // namespace

TEST_F(InspectCommandTest, AnArchiveOfTheVerySizeOfTheLimitFits) {
  const std::string file = WriteZipOfSize("whole.zip", MEBIBYTE);
  const HostResult fitting = Inspect({"--limit", "1", file});
  EXPECT_EQ(fitting.exitCode, 0);
  EXPECT_THAT(fitting.output, HasSubstr("\nsize      1048576 bytes (1.0 MiB), fits into 1 MiB\n"));
  const HostResult larger = Inspect({"--limit", "1", WriteZipOfSize("larger.zip", MEBIBYTE + 1)});
  EXPECT_EQ(larger.exitCode, 65);
  EXPECT_THAT(larger.output,
              HasSubstr("\nsize      1048577 bytes (1.0 MiB), does not fit into 1 MiB\n"));
}

TEST_F(InspectCommandTest, AnArchiveWithoutMembersIsNotRight) {
  const HostResult result = Inspect({m_oFiles.Write("empty.zip", "")});
  EXPECT_EQ(result.exitCode, 65);
  EXPECT_THAT(result.output, HasSubstr("\nmembers   none: the archive is empty\n"));
}

TEST_F(InspectCommandTest, JsonHasSizesAndLimitInBytes) {
  const std::string file = WriteZip("two.zip", {"text", "longer"});
  const rapidjson::Document found = InspectAsJson({"--limit", "3", file});
  EXPECT_EQ(found["archive"].GetString(), file);
  EXPECT_EQ(found["size"].GetUint64(), std::filesystem::file_size(file));
  EXPECT_EQ(found["limit"].GetInt64(), 3 * MEBIBYTE);
  EXPECT_TRUE(found["fits"].GetBool());
  EXPECT_TRUE(found["sealed"].IsNull());
  ASSERT_EQ(found["members"].Size(), 2U);
  EXPECT_STREQ(found["members"][1]["name"].GetString(), "member");
  EXPECT_EQ(found["members"][0]["size"].GetInt64(), 4);
  EXPECT_EQ(found["members"][1]["size"].GetInt64(), 6);
}

TEST_F(InspectCommandTest, JsonTellsOfAnArchiveThatDoesNotFitOrHasChanged) {
  const std::string file = WriteZipOfSize("large.zip", MEBIBYTE + 1);
  m_oFiles.Write("large.zip.sha256", std::string(64, '0') + "  large.zip\n");
  const rapidjson::Document found = InspectAsJson({"--limit", "1", file});
  EXPECT_FALSE(found["fits"].GetBool());
  EXPECT_FALSE(found["sealed"].GetBool());
}

// sha256sum marks a line with such a name.
TEST_F(InspectCommandTest, AnArchiveMayHaveABackslashInItsName) {
  const std::string file = WriteZip("back\\slash.zip", {"text"});
  EXPECT_EQ(InspectAsJson({file})["sha256"].GetStringLength(), 64U);
}

TEST_F(InspectCommandTest, ADirectoryIsNoArchive) {
  const HostResult result = Inspect({m_strBmc});
  EXPECT_EQ(result.exitCode, 66);
  EXPECT_EQ(result.errors, "em_host: There is no archive " + m_strBmc +
                               ": create one with \"em_host run create\", or name another.\n");
}

TEST_F(InspectCommandTest, WithoutARegistryTheArchiveMustBeNamed) {
  const HostResult result = Inspect({});
  EXPECT_EQ(result.exitCode, 66);
  EXPECT_EQ(result.errors,
            "em_host: The registry does not tell where the archive is: name it, or see \"em_host "
            "doctor\".\n");
}
