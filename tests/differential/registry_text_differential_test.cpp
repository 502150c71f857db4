// The text of a registry file, read and written, against the format's rules spelled out.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "platform/registry/registry_entry.h"
#include "platform/registry/registry_node.h"
#include "platform/registry/registry_text.h"
#include "tests/differential/random_case.h"
#include "tests/differential/reference_lines.h"
#include "tests/differential/reference_number.h"

namespace {

struct ReferenceEntry;
using ReferenceNode = std::map<std::string, ReferenceEntry>;

struct ReferenceEntry {
  bool operator==(const ReferenceEntry& other) const = default;

  uint32_t type = 0;
  int32_t integer = 0;
  std::string bytes;
  ReferenceNode subkeys;  // of the key, with its values
};

constexpr size_t LONGEST_LINE = 1023;

// --- The reading

class ReferenceReader {
 public:
  explicit ReferenceReader(const std::string& text) : m_strText(text), m_oLines(text) {}

  // True when anything was read.
  bool ReadNode(ReferenceNode& node) {
    bool hasRead = false;
    std::string line;
    while (NextLine(line)) {
      if (line.empty() || line == "\n") {
        break;
      }
      if (line.back() == '\n') {
        line.pop_back();
      }
      hasRead = (IsHeader(line) ? ReadKey(line, node) : ReadValue(line, node)) || hasRead;
    }
    return hasRead;
  }

 private:
  // A line end that follows a full piece directly is no line of its own.
  bool NextLine(std::string& line) {
    const size_t start = m_oLines.Offset();
    if (!m_oLines.Next(line)) {
      return false;
    }
    const size_t end = m_oLines.Offset();
    if (end - start == LONGEST_LINE && m_strText[end - 1] != '\n' && end < m_strText.size() &&
        m_strText[end] == '\n') {
      std::string lineEnd;
      m_oLines.Next(lineEnd);
    }
    return true;
  }

  static bool IsHeader(const std::string& line) {
    return line[0] == '[' && line.find(']') != std::string::npos;
  }

  bool ReadKey(const std::string& line, ReferenceNode& node) {
    ReferenceEntry entry;
    entry.type = REG_KEY;
    ReadNode(entry.subkeys);
    node[line.substr(1, line.find(']') - 1)] = entry;
    return true;
  }

  static bool ReadValue(const std::string& line, ReferenceNode& node) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) {
      return false;
    }
    const std::string name = line.substr(0, equals);
    const std::string marker = line.substr(equals, line.find('=', equals + 1) - equals + 1);
    const std::string rest = line.substr(std::min(equals + marker.size(), line.size()));
    ReferenceEntry entry;
    if (marker == "=s=" || marker == "=es=") {
      entry.type = marker == "=s=" ? REG_SZ : REG_EXPAND_SZ;
      entry.bytes = rest;
    } else if (marker == "=b=") {
      entry.type = REG_BINARY;
      entry.bytes = ReadBytes(rest);
    } else if (marker == "=d=") {
      const auto number = ReadReferenceNumber(rest, 0, 10);
      if (!number) {
        return true;  // nothing is stored, yet something was read
      }
      entry.type = REG_DWORD;
      entry.integer = static_cast<int32_t>(ReferenceSigned(*number));
    } else {
      return false;
    }
    node[name] = entry;
    return true;
  }

  static std::string ReadBytes(const std::string& text) {
    std::string bytes;
    size_t position = 0;
    while (const auto number = ReadReferenceNumber(text, position, 16)) {
      bytes.push_back(static_cast<char>(ReferenceSigned(*number)));
      position = number->end;
    }
    return bytes;
  }

  const std::string& m_strText;
  ReferenceLines m_oLines;
};

// --- The writing

std::string WriteBytes(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof(digits), "%02x ", static_cast<unsigned char>(byte));
    text += digits;
  }
  return text;
}

std::string WriteValue(const ReferenceEntry& entry) {
  switch (entry.type) {
    case REG_SZ:
      return "=s=" + entry.bytes;
    case REG_EXPAND_SZ:
      return "=es=" + entry.bytes;
    case REG_DWORD:
      return "=d=" + std::to_string(entry.integer);
    default:
      return "=b=" + WriteBytes(entry.bytes);
  }
}

// Integers and bytes may need more room than in the text that they were read from.
std::string LineOf(const std::string& name, const ReferenceEntry& entry) {
  std::string line = name + WriteValue(entry);
  while (entry.type == REG_BINARY && line.size() > LONGEST_LINE) {
    line.resize(line.size() - 3);
  }
  return line.size() > LONGEST_LINE ? "" : line + "\n";
}

std::string WriteByTheRules(const ReferenceNode& node) {
  std::string values;
  std::string keys;
  for (const auto& [name, entry] : node) {
    if (entry.type == REG_KEY) {
      keys += "[" + name + "]\n" + WriteByTheRules(entry.subkeys);
    } else {
      values += LineOf(name, entry);
    }
  }
  return values + keys + "\n";
}

// --- The product's tree

ReferenceNode ReferenceNodeOf(CRegistryNode& node) {
  ReferenceNode expected;
  node.ForEach([&](const CRegistryEntry& entry) {
    ReferenceEntry& copy = expected[std::string(entry.GetName())];
    copy.type = entry.GetType();
    copy.integer = entry.GetInteger();
    if (copy.type != REG_DWORD) {
      copy.bytes = entry.GetData();
    }
    if (entry.GetKey() != nullptr) {
      copy.subkeys = ReferenceNodeOf(*entry.GetKey());
    }
  });
  return expected;
}

// --- The cases

// Two lines of a thousand letters are just shorter and longer than what is read at once.
std::string RandomRegistryLine(Random& random) {
  static const std::vector<std::string> NAMES = {"a",  "a",  "b", "c",       "",
                                                 "n]", "[n", " ", "\xC3\xA9"};
  static const std::vector<std::string> MARKERS = {"=s=", "=es=", "=d=",  "=b=", "=",
                                                   "==",  "=x=",  "=ss=", ""};
  static const std::vector<std::string> VALUES = {
      "",     "x",      "1",  "-17", "2147483648", "99999999999999999999",
      "0x1F", "01 ff ", " 7", "zz",  "a=s=b",      "%A%",
      "]",    "1 2 3 ", "\r", "\t",  "[k]",        std::string("\0", 1),
      "-0x8", "+5"};
  static const std::vector<std::string> KEYS = {"[a]",   "[b]",     "[]", "[a]x",
                                                "[[b]]", "[a=s=1]", "[c"};
  switch (random.Number(5)) {
    case 0:
      return "";
    case 1:
      return random.PickFrom(KEYS);
    default: {
      std::string line = random.PickFrom(NAMES);
      if (random.Once(30)) {
        line += std::string(1005 + random.Number(20), 'l');
      }
      line += random.PickFrom(MARKERS);
      return line + random.Join(VALUES, 3);
    }
  }
}

std::string RandomText(Random& random) {
  std::string text;
  for (uint32_t count = random.Number(12); count > 0; --count) {
    text += RandomRegistryLine(random) + "\n";
  }
  return random.Once(3) ? text + RandomRegistryLine(random) : text;
}

void ExpectTheSameTree(const std::string& text) {
  ReferenceNode expected;
  const bool hasRead = ReferenceReader(text).ReadNode(expected);
  CRegistryNode node;
  EXPECT_EQ(ParseRegistryText(text, node), hasRead) << text;
  EXPECT_TRUE(ReferenceNodeOf(node) == expected) << text << "\nread as\n"
                                                 << WriteRegistryText(node);
}

class RegistryTextDifferentialTest : public DifferentialTest {};

TEST_P(RegistryTextDifferentialTest, MeansTheSameTree) {
  ForEachSeed([](uint32_t seed) {
    Random random(seed);
    ExpectTheSameTree(RandomText(random));
  });
}

TEST(RegistryBytesDifferentialTest, EveryByteMeansTheSameInNamesAndTexts) {
  for (int byte = 0; byte < 256; ++byte) {
    std::string text = "[k?k]\nn?=s=t?t\n";
    std::replace(text.begin(), text.end(), '?', static_cast<char>(byte));
    ExpectTheSameTree(text);
  }
}

TEST(RegistryBytesDifferentialTest, RandomBytesMeanTheSameTree) {
  Random random(0);
  for (int round = 0; round < 100; ++round) {
    std::string text(20'000, ' ');
    for (char& byte : text) {
      byte = static_cast<char>(random.Number(256));
    }
    ExpectTheSameTree(text);
  }
}

TEST_P(RegistryTextDifferentialTest, IsTheSameForATree) {
  ForEachSeed([](uint32_t seed) {
    Random random(seed);
    CRegistryNode node;
    ParseRegistryText(RandomText(random), node);
    ParseRegistryText(RandomText(random), node);
    EXPECT_EQ(WriteRegistryText(node), WriteByTheRules(ReferenceNodeOf(node)));
  });
}

INSTANTIATE_DIFFERENTIAL_TEST(RegistryTextDifferentialTest);

}  // namespace
