// The commands that show and change single keys and values, as a user types them.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/built_files.h"
#include "tests/support/read_only_mount.h"
#include "tests/tools/qamreg_program.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

constexpr char POINTER_KEY[] =
    "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\UUID\\"
    "5B2E9A40-7C13-4F8D-9A61-2D7E0C4B8F13";

TEST_F(QamregTest, QueryPrintsValuesAndTheSubkeysByTheirPaths) {
  WriteTree(
      "[A]\nbin=b=00 01 fe ff \nint=d=-5\nref=es=%HOME%\ntext=s=x y\n[C]\n\n[B]\nin=s=y\n\n\n");
  EXPECT_EQ(Print({"query", "HKLM\\A"}),
            "HKEY_LOCAL_MACHINE\\A\n"
            "    bin    REG_BINARY    0001feff\n"
            "    int    REG_DWORD    -5\n"
            "    ref    REG_EXPAND_SZ    %HOME%\n"
            "    text    REG_SZ    x y\n"
            "HKEY_LOCAL_MACHINE\\A\\B\n"
            "HKEY_LOCAL_MACHINE\\A\\C\n");
}

TEST_F(QamregTest, QueryPrintsAWholeSubtreeKeyByKey) {
  WriteTree("[A]\ntext=s=x\n[C]\n\n[B]\nin=s=y\n[D]\n\n\n\n");
  EXPECT_EQ(Print({"query", "HKLM\\A", "-r"}),
            "HKEY_LOCAL_MACHINE\\A\n"
            "    text    REG_SZ    x\n"
            "\n"
            "HKEY_LOCAL_MACHINE\\A\\B\n"
            "    in    REG_SZ    y\n"
            "\n"
            "HKEY_LOCAL_MACHINE\\A\\B\\D\n"
            "\n"
            "HKEY_LOCAL_MACHINE\\A\\C\n");
}

TEST_F(QamregTest, QueryPrintsOneValueWhereverItIs) {
  WriteTree("[A]\nn=s=1\no=s=2\n[B]\no=s=3\n\n[C]\nn=s=4\n\n\n");
  EXPECT_EQ(Print({"query", "HKLM\\A", "-v", "n"}),
            "HKEY_LOCAL_MACHINE\\A\n    n    REG_SZ    1\n");
  EXPECT_EQ(Print({"query", "HKLM\\A", "-r", "-v", "n"}),
            "HKEY_LOCAL_MACHINE\\A\n    n    REG_SZ    1\n"
            "\n"
            "HKEY_LOCAL_MACHINE\\A\\C\n    n    REG_SZ    4\n");
  EXPECT_EQ(Fail(1, {"query", "HKLM\\A", "-v", "x"}),
            "qamreg: There is no value \"x\" in the key HKEY_LOCAL_MACHINE\\A: \"qamreg query "
            "'HKEY_LOCAL_MACHINE\\A'\" shows what is there.\n");
  EXPECT_EQ(
      Fail(1, {"query", "HKLM\\A", "-v", "x", "-r"}),
      "qamreg: There is no value \"x\" in the key HKEY_LOCAL_MACHINE\\A or below it: \"qamreg "
      "query 'HKEY_LOCAL_MACHINE\\A' -r\" shows what is there.\n");
  EXPECT_EQ(Fail(1, {"query", "HKLM\\X", "-r"}),
            "qamreg: There is no key HKEY_LOCAL_MACHINE\\X: \"qamreg query "
            "'HKEY_LOCAL_MACHINE'\" shows what is there.\n");
}

TEST_F(QamregTest, ReadingNeedsNoRegistryAndMakesNone) {
  EXPECT_EQ(Print({"query", "HKU"}), "HKEY_USERS\n");
  EXPECT_EQ(Fail(1, {"query", "HKU\\X"}),
            "qamreg: There is no key HKEY_USERS\\X: \"qamreg query "
            "'HKEY_USERS'\" shows what is there.\n");
  EXPECT_TRUE(fs::is_empty(REGISTRY_DIRECTORY));
}

TEST_F(QamregTest, RootKeysHaveShortNamesInAnyCase) {
  Change({"add", "HKLM\\a"});
  Change({"add", "hkcu/b/"});
  Change({"add", "\\Hku\\c"});
  Change({"add", "hkcr\\d"});
  Change({"add", "hkcc\\e"});
  Change({"add", "hkey_users\\f"});
  EXPECT_EQ(
      ReadFile(REGISTRY_FILE),
      "[HKEY_CLASSES_ROOT]\n[d]\n\n\n[HKEY_CURRENT_CONFIG]\n[e]\n\n\n[HKEY_CURRENT_USER]\n[b]\n\n\n"
      "[HKEY_LOCAL_MACHINE]\n[a]\n\n\n[HKEY_USERS]\n[c]\n\n[f]\n\n\n\n");
  for (const char* path : {"", "/", "SOFTWARE\\X", "HKLMX\\a"}) {
    EXPECT_THAT(Fail(2, {"query", path}),
                StartsWith("qamreg: The path of a key begins with HKEY_LOCAL_MACHINE, "));
  }
}

TEST_F(QamregTest, AddStoresEachType) {
  Change({"add", "HKLM\\A", "-v", "text", "-d", "x=[y]"});
  Change({"add", "HKLM\\A", "-v", "empty"});
  Change({"add", "HKLM\\A", "-v", "ref", "-t", "REG_EXPAND_SZ", "-d", "%HOME%"});
  Change({"add", "HKLM\\A", "-v", "none", "-t", "REG_BINARY"});
  Change({"add", "HKLM\\A", "-v", "bin", "-t", "reg_binary", "-d", "01 Ff"});
  Change({"add", "HKLM\\A", "-v", "packed", "-t", "REG_BINARY", "-d", "01fF"});
  Change({"add", "HKLM\\A", "-v", "int", "-t", "REG_DWORD", "-d", "-2147483648"});
  Change({"add", "HKLM\\A", "-v", "unsigned", "-t", "REG_DWORD", "-d", "4294967295"});
  Change({"add", "HKLM\\A", "-v", "hex", "-t", "REG_DWORD", "-d", "0x10"});
  EXPECT_EQ(ReadFile(REGISTRY_FILE),
            TreeText("[A]\nbin=b=01 ff \nempty=s=\nhex=d=16\nint=d=-2147483648\nnone=b=\n"
                     "packed=b=01 ff \nref=es=%HOME%\ntext=s=x=[y]\nunsigned=d=-1\n\n"));
}

TEST_F(QamregTest, WordsThatLookLikeSyntaxAreData) {
  for (const std::string word : {"-v", "--", "--help", "{}", "%%", "query", "\"q\"", " "}) {
    Change({"add", "HKLM\\A", "-v", word, "-d", word});
    EXPECT_EQ(Print({"query", "HKLM\\A", "-v", word}),
              "HKEY_LOCAL_MACHINE\\A\n    " + word + "    REG_SZ    " + word + "\n");
  }
  Change({"add", "HKLM\\A", "-v", "list", "-d", "[a,b]"});
  EXPECT_THAT(Print({"query", "HKLM\\A"}), HasSubstr("    list    REG_SZ    [a,b]\n"));
}

TEST_F(QamregTest, TheNamelessValueIsShownAsTheDefaultOne) {
  Change({"add", "HKLM\\A", "-v", "", "-d", "x"});
  EXPECT_EQ(Print({"query", "HKLM\\A"}), "HKEY_LOCAL_MACHINE\\A\n    (Default)    REG_SZ    x\n");
  Change({"delete", "HKLM\\A", "-v", ""});
  EXPECT_EQ(Print({"query", "HKLM\\A"}), "HKEY_LOCAL_MACHINE\\A\n");
}

TEST_F(QamregTest, AddReplacesAValueAndItsType) {
  Change({"add", "HKLM\\A", "-v", "n", "-d", "x"});
  Change({"add", "HKLM\\A", "-v", "n", "-t", "REG_DWORD", "-d", "1"});
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("[A]\nn=d=1\n\n"));
}

TEST_F(QamregTest, AddRefusesDataThatAreNotOfTheType) {
  for (const char* data : {"", "x", "1x", "0x", "0x-1", "0x100000000", "4294967296", "-2147483649",
                           "99999999999999999999", " 1", "1 "}) {
    EXPECT_EQ(
        Fail(2, {"add", "HKLM\\A", "-v", "n", "-t", "REG_DWORD", "-d", data}),
        std::string("qamreg: \"") + data +
            "\" is no integer of 32 bits. Write it in decimal, or in hexadecimal after 0x.\n");
  }
  for (const char* data : {"0", "0g", "001", "0 1", "01,02", "-1", "0x01"}) {
    EXPECT_EQ(Fail(2, {"add", "HKLM\\A", "-v", "n", "-t", "REG_BINARY", "-d", data}),
              std::string("qamreg: \"") + data +
                  "\" is no binary data. They are pairs of hexadecimal digits, such as \"01ff\" or "
                  "\"01 ff\".\n");
  }
  EXPECT_EQ(Fail(2, {"add", "HKLM\\A", "-v", "n", "-t", "REG_QWORD", "-d", "1"}),
            "qamreg: \"REG_QWORD\" is no type of a value. The types are REG_SZ, REG_EXPAND_SZ, "
            "REG_BINARY and REG_DWORD.\n");
}

TEST_F(QamregTest, AddRefusesWhatTheFileCannotHold) {
  EXPECT_EQ(
      Fail(2, {"add", "HKLM\\A", "-v", "n", "-d", "two\nlines"}),
      "qamreg: The registry file cannot hold that: the text has a line end. Give one line.\n");
  EXPECT_EQ(
      Fail(2, {"add", "HKLM\\A", "-v", "a=b", "-d", "x"}),
      "qamreg: The registry file cannot hold that: the name of the value, \"a=b\", has a \"=\". "
      "Choose a name without it.\n");
  EXPECT_EQ(Fail(2, {"add", "HKLM\\A", "-v", "n", "-d", std::string(1020, 'x')}),
            "qamreg: The registry file cannot hold that: its line would have 1024 characters, and "
            "1023 are the limit. Shorten the name or the data.\n");
  EXPECT_EQ(Fail(2, {"add", "HKLM\\A]\\B"}),
            "qamreg: The registry file cannot hold that: the name of the key \"A]\" has a \"]\". "
            "Choose a name without it.\n");
  EXPECT_THAT(Fail(2, {"add", "HKLM\\A\nB", "-v", "n"}),
              HasSubstr("the name of a key has a line end"));
}

TEST_F(QamregTest, AValueAndAKeyDoNotDisplaceEachOther) {
  WriteTree("[A]\nvalue=s=x\n[key]\ninner=s=y\n\n\n");
  EXPECT_EQ(
      Fail(2, {"add", "HKLM\\A", "-v", "key", "-d", "x"}),
      "qamreg: There is a key HKEY_LOCAL_MACHINE\\A\\key, so that there can be no value of that "
      "name. Choose another name.\n");
  EXPECT_EQ(Fail(2, {"add", "HKLM\\A\\value\\below"}),
            "qamreg: There is a value of the name \"value\", so that there can be no key "
            "HKEY_LOCAL_MACHINE\\A\\value. Choose another name.\n");
  EXPECT_EQ(Fail(1, {"delete", "HKLM\\A", "-v", "key"}),
            "qamreg: There is no value \"key\" in the key HKEY_LOCAL_MACHINE\\A: \"qamreg query "
            "'HKEY_LOCAL_MACHINE\\A'\" shows what is there.\n");
  EXPECT_EQ(Fail(1, {"delete", "HKLM\\A\\value"}),
            "qamreg: There is no key HKEY_LOCAL_MACHINE\\A\\value: \"qamreg query "
            "'HKEY_LOCAL_MACHINE\\A'\" shows what is there.\n");
  Change({"add", "HKLM\\A", "-v", "key\\inner", "-d", "a name with a separator is none of a key"});
}

TEST_F(QamregTest, DeleteTakesAValueOrAWholeKeyOut) {
  WriteTree("[A]\nn=s=1\no=s=2\n[B]\nm=s=3\n\n\n[C]\n\n");
  Change({"delete", "HKLM\\A", "-v", "n"});
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("[A]\no=s=2\n[B]\nm=s=3\n\n\n[C]\n\n"));
  Change({"delete", "HKLM\\A"});
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("[C]\n\n"));
  EXPECT_EQ(Fail(1, {"delete", "HKLM\\A"}),
            "qamreg: There is no key HKEY_LOCAL_MACHINE\\A: \"qamreg query "
            "'HKEY_LOCAL_MACHINE'\" shows what is there.\n");
  EXPECT_EQ(Fail(1, {"delete", "HKLM\\A", "-v", "n"}),
            "qamreg: There is no key HKEY_LOCAL_MACHINE\\A: \"qamreg query "
            "'HKEY_LOCAL_MACHINE'\" shows what is there.\n");
  EXPECT_EQ(Fail(1, {"delete", "HKLM\\C", "-v", "n"}),
            "qamreg: There is no value \"n\" in the key HKEY_LOCAL_MACHINE\\C: \"qamreg query "
            "'HKEY_LOCAL_MACHINE\\C'\" shows what is there.\n");
  EXPECT_EQ(
      Fail(2, {"delete", "HKLM"}),
      "qamreg: HKEY_LOCAL_MACHINE is a root key and cannot be deleted: name a key below it.\n");
}

TEST_F(QamregTest, PointersNameKeysInFull) {
  EXPECT_EQ(
      Fail(1, {"pointer", "Talvor"}),
      "qamreg: There is no pointer \"Talvor\": set it with \"qamreg pointer 'Talvor' KEY\".\n");
  Change({"pointer", "Talvor", "hklm/SOFTWARE/Talvor"});
  EXPECT_EQ(Print({"pointer", "Talvor"}), "HKEY_LOCAL_MACHINE\\SOFTWARE\\Talvor\n");
  EXPECT_EQ(Print({"query", POINTER_KEY, "-v", "Talvor"}),
            std::string(POINTER_KEY) +
                "\n    Talvor    REG_SZ    HKEY_LOCAL_MACHINE\\SOFTWARE\\Talvor\n");
  EXPECT_THAT(Fail(2, {"pointer", "Talvor", "SOFTWARE\\Talvor"}),
              HasSubstr("not with \"SOFTWARE\""));
  EXPECT_THAT(Fail(2, {"pointer", "a=b", "HKLM\\A"}), HasSubstr("has a \"=\""));
  Change({"add", POINTER_KEY, "-v", "number", "-t", "REG_DWORD", "-d", "1"});
  EXPECT_EQ(
      Fail(1, {"pointer", "number"}),
      "qamreg: There is no pointer \"number\": set it with \"qamreg pointer 'number' KEY\".\n");
}

TEST_F(QamregTest, AWrongCommandLineIsExplained) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> mistakes = {
      {{}, "a command is missing: see \"qamreg --help\""},
      {{"remove", "HKLM\\A"}, "\"remove\" is no command: see \"qamreg --help\""},
      {{"-x"}, "\"-x\" is no option: see \"qamreg --help\""},
      {{"query"}, "KEY is required: see \"qamreg query --help\""},
      {{"query", "HKLM", "-v"}, "-v needs a value: see \"qamreg query --help\""},
      {{"query", "HKLM", "A"}, "\"A\" is one word too many: see \"qamreg query --help\""},
      {{"add", "HKLM\\A", "-d", "x"}, "-d requires -v: see \"qamreg add --help\""},
      {{"add", "HKLM\\A", "-t", "REG_SZ"}, "-t requires -v: see \"qamreg add --help\""},
      {{"delete", "HKLM\\A", "-r"}, "\"-r\" is no option: see \"qamreg delete --help\""}};
  for (const auto& [arguments, sentence] : mistakes) {
    EXPECT_EQ(Fail(2, arguments), "qamreg: " + sentence + ".\n");
  }
  EXPECT_THAT(Print({"--help"}), AllOf(HasSubstr("Stop the agent before a change: "),
                                       HasSubstr("Exit code: 0 done, 1 ")));
  EXPECT_THAT(Print({"add", "--help"}), HasSubstr("REG_EXPAND_SZ"));
  EXPECT_THAT(Print({"--version"}), MatchesRegex("qamreg [0-9.]+\n"));
}

TEST_F(QamregTest, HelpExplainsKeysAndNamesValuesForPeople) {
  for (const std::string command : {"query", "add", "delete", "export", "pointer"}) {
    EXPECT_THAT(Print({command, "--help"}), HasSubstr("Path of a key, such as ")) << command;
  }
  for (const std::string command : {"query", "add", "delete", "export", "import", "pointer"}) {
    EXPECT_THAT(Print({command, "--help"}), Not(ContainsRegex("TEXT|UINT"))) << command;
  }
}

TEST_F(QamregTest, AReadOnlyEtcIsCalledThat) {
  const ReadOnlyMount readOnly("/etc");
  if (!readOnly.IsMounted()) {
    GTEST_SKIP() << "this machine lets nobody mount";
  }
  EXPECT_EQ(
      Fail(2, {"add", "HKLM\\A"}),
      "qamreg: The registry cannot be changed: /etc/qamrel/registry.lock: Read-only file system. "
      "/etc/qamrel lies in a file system that is mounted read-only: make it writable, or change "
      "the registry where the file system is made.\n");
}

TEST_F(QamregTest, ChangesKeepTheFormerRegistry) {
  Change({"add", "HKLM\\A"});
  const std::string before = ReadFile(REGISTRY_FILE);
  Change({"add", "HKLM\\B"});
  EXPECT_EQ(ReadFile(REGISTRY_BACKUP_FILE), before);
  EXPECT_EQ(fs::status(REGISTRY_FILE).permissions(), fs::perms(0644));
}

TEST_F(QamregTest, ADamagedRegistryIsNotReplaced) {
  WriteFile(REGISTRY_FILE, "not a registry\n");
  WriteFile(REGISTRY_BACKUP_FILE, TreeText("[A]\n\n"));
  for (const std::string command : {"query", "add", "delete"}) {
    EXPECT_EQ(Fail(2, {command, "HKLM\\A"}),
              "qamreg: /etc/qamrel/registry holds no registry. Repair it, or put "
              "/etc/qamrel/registry.old in its place.\n");
  }
  fs::remove(REGISTRY_FILE);
  fs::create_directory(REGISTRY_FILE);
  const Result result = Run({"query", "HKLM\\A"});
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.errors,
            "qamreg: /etc/qamrel/registry cannot be read (no regular file): repair it, or put "
            "/etc/qamrel/registry.old in its place.\n");
}

TEST_F(QamregTest, ARegistryWithALineThatIsTooLongIsNotChanged) {
  const std::string line = "n=s=" + std::string(1019, 'x');
  WriteTree("[A]\n" + line + "y=d=1\n\n");
  for (const std::string command : {"add", "delete"}) {
    EXPECT_EQ(
        Fail(2, {command, "HKLM\\A"}),
        "qamreg: /etc/qamrel/registry: line 9 has 1028 characters, and 1023 are the limit; "
        "what follows counts as a line of its own. Nothing was changed: shorten the line with "
        "an editor, and try again.\n");
  }
  EXPECT_THAT(Print({"query", "HKLM\\A", "-v", "y"}), HasSubstr("REG_DWORD"));
  fs::rename(REGISTRY_FILE, REGISTRY_BACKUP_FILE);
  EXPECT_THAT(Fail(2, {"add", "HKLM\\B"}), HasSubstr("registry.old: line 9 has 1028"));
  WriteTree("[A]\n" + line + "\n\n");
  Change({"add", "HKLM\\B"});
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("[A]\n" + line + "\n\n[B]\n\n"));
}

TEST_F(QamregTest, ARegistryThatIsTooLongIsNotReplaced) {
  WriteTree("[A]\n\n");
  fs::resize_file(REGISTRY_FILE, (size_t{64} << 20) + 1);
  const Result result = Run({"add", "HKLM\\B"});
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.errors,
            "qamreg: /etc/qamrel/registry cannot be read (longer than 64 MiB): repair it, or put "
            "/etc/qamrel/registry.old in its place.\n");
}

TEST_F(QamregTest, TheFirstChangeMakesTheDirectory) {
  fs::remove(REGISTRY_DIRECTORY);
  Change({"add", "HKLM\\A"});
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("[A]\n\n"));
}

TEST_F(QamregTest, AnEmptyRegistryIsOne) {
  WriteFile(REGISTRY_FILE, "");
  WriteFile(REGISTRY_DEFAULT_FILE, TreeText("[A]\n\n"));
  Change({"add", "HKLM\\B"});
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("[A]\n\n[B]\n\n"));
}

TEST_F(QamregTest, AFailedSaveIsReported) {
  WriteTree("");
  fs::create_directory(REGISTRY_TEMPORARY_FILE);
  EXPECT_EQ(Fail(2, {"add", "HKLM\\A"}),
            "qamreg: The registry could not be saved. Look for free space and for what lies in the "
            "way in /etc/qamrel.\n");
}

TEST_F(QamregTest, ALostOutputIsReported) {
  Program program({"/bin/sh", "-c", std::string("exec ") + QAMREG + " query HKLM >/dev/full"});
  EXPECT_EQ(program.Wait(), 2);
  EXPECT_EQ(program.Errors(),
            "qamreg: The output could not be written: check where standard output goes.\n");
}

TEST_F(QamregTest, MissingRightsAreReported) {
  WriteTree("");
  chmod(REGISTRY_DIRECTORY, 0555);
  // Without these, the permissions of files bind the administrator too.
  Program program({"/usr/bin/setpriv", "--bounding-set=-dac_override,-dac_read_search", QAMREG,
                   "add", "HKLM\\A"});
  EXPECT_EQ(program.Wait(), 2);
  EXPECT_EQ(program.Errors(),
            "qamreg: The registry cannot be changed: /etc/qamrel/registry.lock: Permission denied. "
            "Run the command as root.\n");
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText(""));
}

TEST_F(QamregTest, ARegistryThatMayNotBeReadIsReported) {
  WriteTree("");
  chmod(REGISTRY_FILE, 0);
  Program program({"/usr/bin/setpriv", "--bounding-set=-dac_override,-dac_read_search", QAMREG,
                   "query", "HKLM"});
  EXPECT_EQ(program.Wait(), 2);
  EXPECT_EQ(
      program.Errors(),
      "qamreg: /etc/qamrel/registry cannot be read (Permission denied): run qamreg as root.\n");
}

TEST_F(QamregTest, AMissingKeyNamesTheClosestOneThatIsThere) {
  WriteTree("[A]\n[B]\n\n\n");
  EXPECT_THAT(Fail(1, {"query", "HKLM/A/X/Y"}),
              HasSubstr("\"qamreg query 'HKEY_LOCAL_MACHINE\\A'\" shows what is there.\n"));
}

}  // namespace
