// Asks each question of the tables. A new difference from Windows is as much a failure as one that
// has vanished without its row being changed.

#include <gmock/gmock.h>

#include <cctype>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "tests/conformance/conformance.h"
#include "tests/support/built_files.h"

// What a list of the cases shows.
void PrintTo(const ConformanceCase& row, std::ostream* stream) { *stream << row.asked; }

namespace {

// "value, cut" becomes ValueCut.
std::string NameOfCase(const testing::TestParamInfo<ConformanceCase>& info) {
  std::string name;
  bool isWordStart = true;
  for (const char* letter = info.param.asked; *letter != '\0'; ++letter) {
    const auto character = static_cast<unsigned char>(*letter);
    if (std::isalnum(character) != 0) {
      name += static_cast<char>(isWordStart ? std::toupper(character) : character);
    }
    isWordStart = std::isalnum(character) == 0;
  }
  return name;
}

class ConformanceTest : public testing::TestWithParam<ConformanceCase> {};

TEST_P(ConformanceTest, Of) {
  const ConformanceCase& row = GetParam();
  EXPECT_EQ(row.ask(), row.Ours()) << row.asked;
  EXPECT_TRUE(!row.differs || row.differs->ours != row.windows)
      << "\"" << row.asked << "\" is marked as a difference and is none";
}

#define EM_TALVOR_CONFORMANCE(Table) \
  INSTANTIATE_TEST_SUITE_P(Table, ConformanceTest, testing::ValuesIn(Table##Cases()), NameOfCase)

EM_TALVOR_CONFORMANCE(ProfileReading);
EM_TALVOR_CONFORMANCE(ProfileList);
EM_TALVOR_CONFORMANCE(ProfileWriting);
EM_TALVOR_CONFORMANCE(Event);
EM_TALVOR_CONFORMANCE(EventWaiter);
EM_TALVOR_CONFORMANCE(EventHandle);
EM_TALVOR_CONFORMANCE(RegistryKey);
EM_TALVOR_CONFORMANCE(RegistryValue);
EM_TALVOR_CONFORMANCE(RegistryStorage);

TEST(ConformancePageTest, IsCommittedAsTheTablesPrintIt) {
  std::ifstream file(CONFORMANCE_PAGE, std::ios::binary);
  const std::string committed{std::istreambuf_iterator<char>(file), {}};
  EXPECT_TRUE(committed == ConformancePage())
      << "write it again: conformance_tests --print > docs/windows.md";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--print") == 0) {
    std::cout << ConformancePage();
    return 0;
  }
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
