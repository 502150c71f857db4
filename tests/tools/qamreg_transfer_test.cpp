// Export and import.

#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "tests/support/built_files.h"
#include "tests/tools/qamreg_program.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class QamregTransferTest : public QamregTest {
 protected:
  std::string Import(const std::string& text) { return m_oFiles.Write("import", text); }

  ScratchDirectory m_oFiles;
};

constexpr char CONTENT[] =
    "value=s=outside\n[A]\n=s=nameless\nbin=b=00 ff \nint=d=-1\nref=es=%HOME%\ntext=s= x \r\n"
    "[B]\n[C]\nin=s=y\n\n\n\n[D]\n\n";

TEST_F(QamregTransferTest, ExportPrintsTheRegistryInItsOwnFormat) {
  WriteTree(CONTENT);
  EXPECT_EQ(Print({"export"}), TreeText(CONTENT));
}

TEST_F(QamregTransferTest, ExportAllWritesTheRegistryToAFileOrPrintsIt) {
  WriteTree(CONTENT);
  Change({"export", "--all", m_oFiles.Path("file")});
  EXPECT_EQ(m_oFiles.Read("file"), TreeText(CONTENT));
  EXPECT_EQ(Print({"export", "--all"}), TreeText(CONTENT));
  EXPECT_EQ(Fail(2, {"export", "--all", m_oFiles.Path("file"), "more"}),
            "qamreg: \"more\" is one word too many: --all exports all keys, to one FILE.\n");
}

TEST_F(QamregTransferTest, AnExportedRegistryComesBackAsItWas) {
  WriteTree(CONTENT);
  const std::string file = m_oFiles.Write("file", Print({"export"}));
  fs::remove(REGISTRY_FILE);
  Change({"import", file});
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText(CONTENT));
}

TEST_F(QamregTransferTest, AnExportedKeyBringsTheKeysAroundItAndNothingElseOfThem) {
  WriteTree(CONTENT);
  const std::string file = m_oFiles.Path("file");
  Change({"export", "HKLM\\A\\B", file});
  EXPECT_EQ(m_oFiles.Read("file"), "[HKEY_LOCAL_MACHINE]\n[A]\n[B]\n[C]\nin=s=y\n\n\n\n\n\n");
  EXPECT_EQ(Print({"export", "HKU"}), "[HKEY_USERS]\n\n\n");
  fs::remove(REGISTRY_FILE);
  Change({"import", file});
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("[A]\n[B]\n[C]\nin=s=y\n\n\n\n"));
}

TEST_F(QamregTransferTest, ImportAddsToWhatIsThere) {
  WriteTree("[A]\nkept=s=1\nchanged=s=2\n[B]\n\n\n");
  Change({"import", Import("[HKEY_LOCAL_MACHINE]\n[A]\nchanged=d=3\nnew=s=4\n[C]\n\n\n\n")});
  EXPECT_EQ(ReadFile(REGISTRY_FILE),
            TreeText("[A]\nchanged=d=3\nkept=s=1\nnew=s=4\n[B]\n\n[C]\n\n\n"));
}

TEST_F(QamregTransferTest, ImportReadsStandardInput) {
  Program program(
      {"/bin/sh", "-c", "printf '[HKEY_USERS]\\n[A]\\n' | " + std::string(QAMREG) + " import -"});
  EXPECT_EQ(program.Wait(), 0) << program.Errors();
  EXPECT_THAT(ReadFile(REGISTRY_FILE), HasSubstr("[HKEY_USERS]\n[A]\n"));
}

TEST_F(QamregTransferTest, ImportStoresAllOrNothing) {
  WriteTree("[A]\n[key]\n\n\nvalue=s=x\n");
  const std::string keyInPlaceOfValue = "[HKEY_LOCAL_MACHINE]\n[New]\n\n[value]\n[below]\n";
  EXPECT_EQ(Fail(2, {"import", Import(keyInPlaceOfValue)}),
            "qamreg: There is a value of the name \"value\", so that there can be no key "
            "HKEY_LOCAL_MACHINE\\value. Choose another name.\n");
  const std::string valueInPlaceOfKey = "[HKEY_LOCAL_MACHINE]\n[New]\n\n[A]\nkey=s=x\n";
  EXPECT_EQ(
      Fail(2, {"import", Import(valueInPlaceOfKey)}),
      "qamreg: There is a key HKEY_LOCAL_MACHINE\\A\\key, so that there can be no value of that "
      "name. Choose another name.\n");
  const std::string both = "[HKEY_LOCAL_MACHINE]\n[New]\n\nboth=s=x\n[both]\n";
  EXPECT_EQ(
      Fail(2, {"import", Import(both)}),
      "qamreg: There is a key HKEY_LOCAL_MACHINE\\both, so that there can be no value of that "
      "name. Choose another name.\n");
  EXPECT_EQ(
      Fail(2, {"import", Import("[HKEY_LOCAL_MACHINE]\n[New]\nx\n")}),
      "qamreg: Line 3: neither a key, a value nor empty. Nothing was imported: correct the line "
      "and try again.\n");
}

TEST_F(QamregTransferTest, FilesThatCannotBeReadOrWrittenAreNamed) {
  WriteTree("");
  const std::string missing = m_oFiles.Path("no/such");
  const std::string advice = "name a file that \"qamreg export\" wrote.\n";
  EXPECT_EQ(Fail(2, {"import", missing}),
            "qamreg: " + missing + " cannot be read (No such file or directory): " + advice);
  EXPECT_EQ(Fail(2, {"import", m_oFiles.Path()}),
            "qamreg: " + m_oFiles.Path() + " cannot be read (no regular file): " + advice);
  EXPECT_EQ(Fail(2, {"import", Import("\n")}),
            "qamreg: There is no key in the text to import: " + advice);
  const std::string otherFile = "): name a file that can, or \"-\" for standard output.\n";
  EXPECT_EQ(Fail(2, {"export", "HKLM", missing}),
            "qamreg: " + missing + " cannot be written (No such file or directory" + otherFile);
  EXPECT_EQ(Fail(2, {"export", "HKLM", "/dev/full"}),
            "qamreg: /dev/full cannot be written (No space left on device" + otherFile);
  EXPECT_EQ(Fail(1, {"export", "HKLM\\A"}),
            "qamreg: There is no key HKEY_LOCAL_MACHINE\\A: \"qamreg query 'HKEY_LOCAL_MACHINE'\" "
            "shows what is there.\n");
}

}  // namespace
