// Profile files, read and written, against the rules spelled out.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/profile/profile_string.h"
#include "tests/differential/random_case.h"
#include "tests/differential/reference_profile.h"
#include "tests/support/memory_file.h"

namespace {

const std::vector<std::string> PROFILE_SECTIONS = {"A", "A", "B", "", "A]", "Long name", "\xC4"};
const std::vector<std::string> PROFILE_KEYS = {"a", "a", "b", "ab", "", "a b", "[A]", "\xC4"};
const std::vector<std::string> PROFILE_VALUES = {"1", "two words", "",     " x ", "a=b",
                                                 ";", "\"q\"",     "\xC4", "[B]"};

// Lines around the thousand letters are just shorter and longer than what is read at once.
std::string RandomProfileLine(Random& random) {
  static const std::vector<std::string> BLANKS = {"", "", "", "", " ", "\t", "\r", " \v", "\f"};
  std::string line = random.PickFrom(BLANKS);
  switch (random.Number(8)) {
    case 0:
      return line;
    case 1:
      return line + ";" + random.PickFrom(PROFILE_VALUES);
    case 2:
    case 3:
      line += "[" + random.PickFrom(PROFILE_SECTIONS) + (random.Once(10) ? "" : "]");
      break;
    default:
      line += random.PickFrom(PROFILE_KEYS) + random.PickFrom(BLANKS) +
              (random.Once(10) ? "" : "=") + random.PickFrom(BLANKS) +
              random.PickFrom(PROFILE_VALUES);
      break;
  }
  if (random.Once(60)) {
    line += std::string(1012 + random.Number(16), 'l') + random.PickFrom(PROFILE_VALUES);
  }
  if (random.Once(60)) {
    line += '\0';
    line += random.PickFrom(PROFILE_VALUES);
  }
  return line + random.PickFrom(BLANKS) + (random.Once(10) ? ";" : "");
}

// Files of more than 32768 bytes are read in several blocks.
std::string RandomContent(Random& random) {
  std::string content;
  for (uint32_t count = random.Number(14); count > 0; --count) {
    if (random.Once(1000)) {
      content += std::string(32000 + random.Number(1000), '\n');
    }
    content += RandomProfileLine(random) + "\n";
  }
  return random.Once(3) ? content + RandomProfileLine(random) : content;
}

// Null once in a while.
const char* Some(Random& random, const std::vector<std::string>& texts) {
  return random.Once(6) ? nullptr : random.PickFrom(texts).c_str();
}

std::string Shown(const char* text) {
  return text != nullptr ? "\"" + std::string(text) + "\"" : "null";
}

class ProfileDifferentialTest : public DifferentialTest {
 protected:
  MemoryFile m_oFile;
};

TEST_P(ProfileDifferentialTest, GivesTheSameAnswer) {
  ForEachSeed([&](uint32_t seed) {
    Random random(seed);
    const std::string content = RandomContent(random);
    const char* const section = Some(random, PROFILE_SECTIONS);
    const char* const key = Some(random, PROFILE_KEYS);
    const char* const defaultValue = Some(random, PROFILE_VALUES);
    const uint32_t size = random.Once(2) ? 1 + random.Number(12) : 1200;
    m_oFile.Fill(content);

    std::vector<char> buffer(size);
    const uint32_t result =
        GetPrivateProfileString(section, key, defaultValue, buffer.data(), size, m_oFile.GetPath());
    const ReferenceAnswer expected =
        ReadReferenceProfile(content, section, key, defaultValue, size);
    ASSERT_EQ(result, expected.result)
        << Shown(section) << Shown(key) << Shown(defaultValue) << size << " in\n"
        << content;
    EXPECT_EQ(std::string(buffer.data(), result + 1), expected.bytes) << content;
  });
}

TEST_P(ProfileDifferentialTest, MakesTheSameFile) {
  ForEachSeed([&](uint32_t seed) {
    Random random(seed);
    const std::string content = RandomContent(random);
    const std::string section = random.PickFrom(PROFILE_SECTIONS);
    const char* const key = Some(random, PROFILE_KEYS);
    const char* const value = Some(random, PROFILE_VALUES);
    m_oFile.Fill(content);

    const uint32_t result =
        WritePrivateProfileString(section.c_str(), key, value, m_oFile.GetPath());
    const ReferenceUpdate expected = WriteReferenceProfile(content, section.c_str(), key, value);
    EXPECT_EQ(result, expected.result) << section << Shown(key) << Shown(value) << " in\n"
                                       << content;
    EXPECT_EQ(m_oFile.Read(), expected.content) << section << Shown(key) << Shown(value) << " in\n"
                                                << content;
  });
}

INSTANTIATE_DIFFERENTIAL_TEST(ProfileDifferentialTest);

}  // namespace
