#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/platform/profile_test_file.h"

// The calls once more, done line by line over stdio as their results are defined. The product reads
// in blocks and skips most lines unparsed; on random files both must agree to the byte.

namespace {

using Stream = std::unique_ptr<FILE, int (*)(FILE*)>;

Stream Open(const char* name, const char* mode) { return {fopen(name, mode), &fclose}; }

bool Enters(const char* line, const char* section) {
  const size_t length = strlen(section);
  return strncmp(line + 1, section, length) == 0 && line[1 + length] == ']';
}

void TrimEnd(char* text) {
  for (size_t length = strlen(text);
       length > 0 && isspace(static_cast<unsigned char>(text[length - 1]));) {
    text[--length] = '\0';
  }
}

char* SkipSpace(char* text) {
  while (isspace(static_cast<unsigned char>(*text))) {
    ++text;
  }
  return text;
}

std::string LineWiseRead(const char* section, const char* key, const char* defaultValue,
                         size_t size, const char* name) {
  std::string answer;
  bool isFound = false;
  bool isInside = false;
  const Stream file = Open(name, "r");
  std::array<char, 1024> buffer;
  while (answer.size() < size && fgets(buffer.data(), buffer.size(), file.get()) != nullptr) {
    char* const line = SkipSpace(buffer.data());
    if (*line == '\0' || *line == ';') {
      continue;
    }
    line[strcspn(line, ";")] = '\0';
    TrimEnd(line);
    if (*line == '[') {
      if (isInside) {
        break;
      }
      char* const end = strchr(line, ']');
      if (section == nullptr && end != nullptr) {
        answer.append(line + 1, end).push_back('\0');
      }
      isInside = section != nullptr && Enters(line, section);
      continue;
    }
    char* const equals = strchr(line, '=');
    if (!isInside || equals == nullptr) {
      continue;
    }
    *equals = '\0';
    TrimEnd(line);
    if (key == nullptr) {
      answer.append(line).push_back('\0');
    } else if (strcmp(line, key) == 0) {
      answer = SkipSpace(equals + 1);
      isFound = true;
      break;
    }
  }
  const bool isList = section == nullptr || key == nullptr;
  if (!isList && !isFound) {
    answer = defaultValue;
  }
  if (answer.size() >= size) {
    answer.resize(isList ? size - 2 : size - 1);
  }
  return answer;
}

std::string LineWiseEntry(const char* key, const char* value) {
  return value != nullptr ? std::string(key) + "=" + value + "\n" : "";
}

// The text of the file after the update. `isDone` tells whether it took place.
std::string LineWiseWrite(const char* section, const char* key, const char* value, const char* name,
                          const std::string& text, bool& isDone) {
  const auto replace = [&](long from, long to, const std::string& by) {
    return text.substr(0, static_cast<size_t>(from)) + by + text.substr(static_cast<size_t>(to));
  };
  const Stream file = Open(name, "r");
  std::array<char, 1024> line;
  bool isInside = false;
  long start = 0;
  int entries = 0;
  isDone = true;
  for (;;) {
    const long from = ftell(file.get());
    do {
      if (fgets(line.data(), line.size(), file.get()) == nullptr) {
        if (key == nullptr && isInside) {
          return text.substr(0, static_cast<size_t>(start));
        }
        isDone = key != nullptr && value != nullptr;
        if (!isDone) {
          return text;
        }
        return text + (isInside ? "" : "\n[" + std::string(section) + "]\n\n") +
               LineWiseEntry(key, value);
      }
      const size_t length = strlen(line.data());
      line[length > 0 ? length - 1 : 0] = '\0';
    } while (line[0] == '\0' || line[0] == ';');
    const long end = ftell(file.get());
    if (line[0] == '[') {
      if (isInside && key == nullptr) {
        return replace(start, from, "");
      }
      if (isInside) {
        isDone = value != nullptr;
        return replace(from, from, LineWiseEntry(key, value));
      }
      isInside = Enters(line.data(), section);
      start = from;
      entries = 0;
      continue;
    }
    ++entries;
    char* equals = strchr(line.data(), '=');
    if (!isInside || key == nullptr || equals == nullptr) {
      continue;
    }
    while (equals > line.data() && isblank(static_cast<unsigned char>(equals[-1]))) {
      --equals;
    }
    *equals = '\0';
    if (strcmp(line.data(), key) == 0) {
      return replace(from, end, (entries < 2 ? "\n" : "") + LineWiseEntry(key, value));
    }
  }
}

class RandomProfile {
 public:
  explicit RandomProfile(unsigned seed) : m_random(seed) {}

  size_t Below(size_t limit) {
    return std::uniform_int_distribution<size_t>(0, limit - 1)(m_random);
  }

  const char* Name() { return Of({"a", "b", "ab", "", "a b", "a;b"}); }
  const char* NameOrNull() { return Below(5) == 0 ? nullptr : Name(); }

  std::string Text() {
    std::string text;
    const size_t pieces = Below(30);
    for (size_t i = 0; i < pieces; ++i) {
      text += Piece();
    }
    return text;
  }

 private:
  const char* Of(const std::vector<const char*>& texts) { return texts[Below(texts.size())]; }

  std::string Piece() {
    switch (Below(16)) {
      case 0:
        return std::string(1, '\0');
      case 1:
        return std::string(1015 + Below(15), "xa;= ["[Below(6)]);
      case 2:
        return Below(8) == 0 ? std::string(30000 + Below(3000), '\n') : "\n";
      case 3:
        return Of({"[", "]", "=", ";", " ", "\t", "\r", "\v", "\n", "x"});
      case 4:
      case 5:
        return std::string("; ") + Name() + "\n";
      case 6:
      case 7:
      case 8:
        return std::string(Of({"", "", "", " "})) + "[" + Name() + Of({"]\n", "] x\n", "\n"});
      default:
        return std::string(Of({"", "", "", " "})) + Name() + Of({"=", "=", " = ", ""}) +
               Of({"1", "two ; 2", "", "\"x\""}) + Of({"\n", "\n", "\n", " \r\n", ""});
    }
  }

  std::mt19937 m_random;
};

}  // namespace

TEST(ProfileLineWiseTest, ReadsAgreeOnRandomFiles) {
  const ProfileTestFile file;
  for (unsigned seed = 0; seed < 1500; ++seed) {
    RandomProfile random(seed);
    std::filesystem::remove(file.Name());
    file.SetText(random.Text());
    for (int i = 0; i < 5; ++i) {
      const char* const section = random.NameOrNull();
      const char* const key = random.NameOrNull();
      const auto size = static_cast<uint32_t>(random.Below(4) == 0 ? 2000 : 2 + random.Below(20));
      ASSERT_EQ(ReadProfile(file.Name(), section, key, "default", size).text,
                LineWiseRead(section, key, section && key ? "default" : "", size, file.Name()))
          << "seed " << seed;
    }
  }
}

TEST(ProfileLineWiseTest, WritesAgreeOnRandomFiles) {
  const ProfileTestFile file;
  for (unsigned seed = 0; seed < 1500; ++seed) {
    RandomProfile random(seed);
    std::filesystem::remove(file.Name());
    file.SetText(random.Text());
    for (int i = 0; i < 5; ++i) {
      const char* const section = random.Name();
      const char* const key = random.NameOrNull();
      const char* const value = random.NameOrNull();
      bool isDone = false;
      const std::string expected =
          LineWiseWrite(section, key, value, file.Name(), file.Text(), isDone);
      ASSERT_EQ(WritePrivateProfileString(section, key, value, file.Name()), isDone ? 1U : 0U)
          << "seed " << seed;
      ASSERT_EQ(file.Text(), expected) << "seed " << seed;
    }
  }
}
