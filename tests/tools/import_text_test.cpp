#include "tools/qamreg/import_text.h"

#include <gmock/gmock.h>

#include <cstring>
#include <string>

#include "tools/qamreg/failure.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;

constexpr char ADVICE[] = " Nothing was imported: correct the line and try again.";

// Each key with its values, as one text.
std::vector<std::string> Parse(const std::string& text) {
  std::vector<std::string> keys;
  for (const KeyContent& key : ParseImport(text)) {
    std::string shown = key.path;
    for (const auto& [name, data] : key.values) {
      shown += "|" + name + ":" + TypeName(data.type) + ":" + FormatValue(data);
    }
    keys.push_back(shown);
  }
  return keys;
}

std::string Refusal(const std::string& text) {
  try {
    ParseImport(text);
    return "taken";
  } catch (const CFailure& failure) {
    EXPECT_EQ(failure.GetCode(), EXIT_FAILED);
    const std::string sentences = failure.what();
    EXPECT_THAT(sentences, EndsWith(ADVICE));
    return sentences.substr(0, sentences.size() - strlen(ADVICE));
  }
}

// What is said about a line within a key.
std::string RefusalOf(const std::string& line) { return Refusal("[HKEY_USERS]\n" + line + "\n"); }

TEST(ImportText, HoldsKeysWithinKeys) {
  EXPECT_THAT(
      Parse("[HKEY_USERS]\n[A]\nn=s=1\n[B]\n\nafter=s=2\n\n[C]\n\n\n[HKEY_LOCAL_MACHINE]\n\n\n"),
      ElementsAre("HKEY_USERS", "HKEY_USERS\\A|n:REG_SZ:1|after:REG_SZ:2", "HKEY_USERS\\A\\B",
                  "HKEY_USERS\\C", "HKEY_LOCAL_MACHINE"));
}

TEST(ImportText, HoldsValuesOfEachType) {
  EXPECT_THAT(
      Parse("[HKEY_USERS]\na=s=x=y\nb=es=%H%\nc=d=-2147483648\nd=b=00 ff \ne=b=\nf=b=0A\n=s=\n"),
      ElementsAre("HKEY_USERS|a:REG_SZ:x=y|b:REG_EXPAND_SZ:%H%|c:REG_DWORD:-2147483648|"
                  "d:REG_BINARY:00ff|e:REG_BINARY:|f:REG_BINARY:0a|:REG_SZ:"));
}

TEST(ImportText, MayEndWithoutLineEndOrWithEmptyLines) {
  EXPECT_THAT(Parse("[HKEY_USERS]\n[A]\nn=s=1"),
              ElementsAre("HKEY_USERS", "HKEY_USERS\\A|n:REG_SZ:1"));
  EXPECT_THAT(Parse("[HKEY_USERS]\n\n\n\n\n"), ElementsAre("HKEY_USERS"));
  EXPECT_THAT(Parse(""), ElementsAre());
}

TEST(ImportText, KeepsBlanksAndCarriageReturnsOfTexts) {
  EXPECT_THAT(Parse("[HKEY_USERS]\n n =s= x \r\n"), ElementsAre("HKEY_USERS| n :REG_SZ: x \r"));
}

TEST(ImportText, RefusesLinesThatALoadWouldIgnoreOrBend) {
  EXPECT_EQ(RefusalOf("x"), "Line 2: neither a key, a value nor empty.");
  EXPECT_EQ(RefusalOf("[open"), "Line 2: neither a key, a value nor empty.");
  EXPECT_EQ(RefusalOf("[A] x"), "Line 2: nothing may follow the \"]\".");
  for (const std::string value : {"x=1", "x=", "x=S=1", "x=s"}) {
    EXPECT_EQ(RefusalOf(value),
              "Line 2: the name of a value is followed by \"=s=\", \"=es=\", \"=d=\" or \"=b=\".");
  }
  for (const std::string number : {"", " 1", "1 ", "+1", "0x1", "2147483648", "1\r"}) {
    EXPECT_EQ(RefusalOf("x=d=" + number),
              "Line 2: after \"=d=\" stands an integer of 32 bits with a sign, in decimal.");
  }
  for (const std::string bytes : {"0", "0102", "01  02", " 01", "01 2", "01 02x", "0g", "01\t02"}) {
    EXPECT_EQ(
        RefusalOf("x=b=" + bytes),
        "Line 2: after \"=b=\" stand pairs of hexadecimal digits with one blank between them.");
  }
}

TEST(ImportText, RefusesLinesThatALoadWouldSplit) {
  EXPECT_EQ(RefusalOf("x=s=" + std::string(1019, 'y')), "taken");
  EXPECT_EQ(RefusalOf("x=s=" + std::string(1020, 'y')), "Line 2: longer than 1023 characters.");
  EXPECT_EQ(RefusalOf("[" + std::string(1021, 'y') + "]"), "taken");
  EXPECT_EQ(RefusalOf("[" + std::string(1022, 'y') + "]"), "Line 2: longer than 1023 characters.");
}

TEST(ImportText, RefusesNamesThatNoPathReaches) {
  for (const std::string name : {"", "a\\b", "a/b"}) {
    EXPECT_EQ(RefusalOf("[" + name + "]"),
              "Line 2: not the name of one key. A key stands within the key around it.");
  }
}

TEST(ImportText, RefusesWhatStandsOutsideOfTheRootKeys) {
  EXPECT_EQ(Refusal("[SOFTWARE]\n"),
            "Line 1: \"SOFTWARE\" is no root key, and it stands within none.");
  EXPECT_EQ(Refusal("[HKLM]\n"), "Line 1: \"HKLM\" is no root key, and it stands within none.");
  EXPECT_EQ(Refusal("x=s=y\n"), "Line 1: a value stands outside of the root keys.");
  EXPECT_EQ(Refusal("[HKEY_USERS]\n\n\n[HKEY_LOCAL_MACHINE]\n"),
            "Line 4: nothing may follow the empty line that ends the file.");
}

TEST(ImportText, RefusesFilesOfAnotherKind) {
  constexpr char WINDOWS[] =
      "the line ends as on Windows. Remove the carriage returns, for instance with \"tr -d '\\r'\".";
  EXPECT_EQ(Refusal("[HKEY_USERS]\r\n\r\n"), std::string("Line 1: ") + WINDOWS);
  EXPECT_EQ(RefusalOf("\r"), std::string("Line 2: ") + WINDOWS);
  EXPECT_EQ(RefusalOf(std::string("x=s=\0y", 6)), "Line 2: a zero byte; this is no text.");
}

}  // namespace
