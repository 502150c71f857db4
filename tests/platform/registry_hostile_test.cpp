#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <random>
#include <string>

#include "platform/registry.h"
#include "platform/registry_tree.h"
#include "tests/support/registry_directory.h"
#include "tests/support/registry_model.h"

namespace fs = std::filesystem;

namespace {

using testing::Contains;
using testing::Key;
using testing::Pair;

constexpr size_t LONG_LINE = 10'000'000;
constexpr int DEEP = 100'000;

std::string Repeated(const std::string& text, size_t count) {
  std::string repeated;
  repeated.reserve(text.size() * count);
  for (size_t index = 0; index < count; ++index) {
    repeated += text;
  }
  return repeated;
}

RegistryModel RootsOnly() {
  RegistryModel model;
  for (const char* root : ROOT_KEY_NAMES) {
    model[std::string(root) + '\n'] = ModelOfKey();
  }
  return model;
}

RegistryModel Load(const std::string& text) {
  WriteFile(CURRENT, text);
  return LoadTree();
}

// --- A reader of the text as plain as can be ---

void Store(const std::string& name, const std::string& value, RegistryModel& node) {
  const std::string place = name + '\n';
  std::erase_if(node, [&](const auto& entry) { return entry.first.starts_with(place); });
  node[place] = value;
}

void StoreKey(const std::string& name, const RegistryModel& key, RegistryModel& node) {
  Store(name, ModelOfKey(), node);
  for (const auto& [place, value] : key) {
    std::string below = name;
    below += '\n';
    below += place;
    node[below] = value;
  }
}

std::string ParseBytes(const char* text) {
  std::string bytes;
  for (char* end = nullptr;; text = end) {
    const long number = std::strtol(text, &end, 16);
    if (end == text) {
      return bytes;
    }
    bytes.push_back(static_cast<char>(number));
  }
}

void ReadValueLine(const std::string& line, RegistryModel& node) {
  const size_t marker = line.find('=');
  if (marker == std::string::npos) {
    return;
  }
  const std::string name = line.substr(0, marker);
  const std::string rest = line.substr(marker);
  if (rest.starts_with("=s=")) {
    Store(name, ModelOfValue(REG_SZ, rest.substr(3)), node);
  } else if (rest.starts_with("=es=")) {
    Store(name, ModelOfValue(REG_EXPAND_SZ, rest.substr(4)), node);
  } else if (rest.starts_with("=b=")) {
    Store(name, ModelOfValue(REG_BINARY, ParseBytes(rest.c_str() + 3)), node);
  } else if (rest.starts_with("=d=")) {
    char* end = nullptr;
    const long number = std::strtol(rest.c_str() + 3, &end, 10);
    if (end != rest.c_str() + 3) {
      Store(name, ModelOfValue(REG_DWORD, std::to_string(static_cast<int32_t>(number))), node);
    }
  }
}

RegistryModel ReadNode(std::FILE* file) {
  RegistryModel node;
  char line[1024];
  while (std::fgets(line, sizeof(line), file) != nullptr && line[0] != '\n' && line[0] != '\0') {
    if (char* end = std::strrchr(line, '\n'); end != nullptr) {
      *end = '\0';
    }
    char* nameEnd = std::strchr(line, ']');
    if (line[0] == '[' && nameEnd != nullptr) {
      StoreKey(std::string(line + 1, nameEnd), ReadNode(file), node);
    } else {
      ReadValueLine(line, node);
    }
  }
  return node;
}

RegistryModel ReadPlainly(std::string text) {
  std::FILE* file = fmemopen(text.data(), text.size(), "r");
  RegistryModel model = ReadNode(file);
  std::fclose(file);
  model.merge(RootsOnly());
  return model;
}

// --- The tests ---

class RegistryHostileTest : public testing::Test {
 protected:
  RegistryHostileTest() { ResetRegistryDirectory(); }
};

TEST_F(RegistryHostileTest, RandomTextIsReadAsAPlainReaderDoes) {
  const std::string nul(1, '\0');
  const std::string pieces[] = {
      "[",       "]",    "=",          "=s=",     "=es=",  "=d=",  "=b=",   "\n",    "\n",
      "\n",      "\n\n", "a",          "b",       " ",     "%",    "[a]\n", "[b]\n", "-1",
      "0x1f ",   "ff ",  "12345",      nul,       "\r",    "\t",   "\xff",  "[a]",   "a=s=",
      "b=d=7\n", "\x80", "2147483648", "a=s=x\n", "[]=s=", "=s=\n"};
  std::mt19937 random(0);
  for (int round = 0; round < 2000; ++round) {
    std::string text;
    for (auto count = 1 + random() % 200; count > 0; --count) {
      text += pieces[random() % std::size(pieces)];
      if (random() % 100 == 0) {
        text.append(1010 + random() % 30, 'x');
      }
    }
    ASSERT_EQ(Load(text), ReadPlainly(text)) << "round " << round << ": " << text;
  }
}

TEST_F(RegistryHostileTest, RandomBytesAreReadAsAPlainReaderDoes) {
  std::mt19937 random(0);
  for (int round = 0; round < 100; ++round) {
    std::string text(20'000, ' ');
    for (char& byte : text) {
      byte = static_cast<char>(random());
    }
    ASSERT_EQ(Load(text), ReadPlainly(text)) << "round " << round;
  }
}

TEST_F(RegistryHostileTest, RandomTextCanBeSavedAndLoadedAgain) {
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    std::string text = "[a]\n";
    for (int count = 0; count < 2000; ++count) {
      text += "[]=sedb \n01ax%\xff"[random() % 15];
    }
    const RegistryModel loaded = Load(text);
    CRegistryTree::Get().MarkDirty();
    CRegistryTree::Get().SaveTree();
    ASSERT_EQ(LoadTree(), loaded) << "round " << round;
  }
}

TEST_F(RegistryHostileTest, EveryByteCanStandInNamesAndTexts) {
  for (int byte = 1; byte <= std::numeric_limits<unsigned char>::max(); ++byte) {
    std::string text = "[k?k]\nn?=s=t?t\n";
    std::replace(text.begin(), text.end(), '?', static_cast<char>(byte));
    ASSERT_EQ(Load(text), ReadPlainly(text)) << "byte " << byte;
  }
}

TEST_F(RegistryHostileTest, AllBytesInARowAreRead) {
  std::string bytes;
  for (int byte = 0; byte <= std::numeric_limits<unsigned char>::max(); ++byte) {
    bytes.push_back(static_cast<char>(byte));
  }
  EXPECT_EQ(Load(bytes), RootsOnly());
  EXPECT_EQ(Load("v=s=" + bytes.substr(1)), ReadPlainly("v=s=" + bytes.substr(1)));
}

TEST_F(RegistryHostileTest, LineOfTenMegabytesIsReadInPieces) {
  const auto check = [](const std::string& line, const RegistryModel& expected) {
    RegistryModel model = RootsOnly();
    model.insert(expected.begin(), expected.end());
    EXPECT_EQ(Load(line), model);
    EXPECT_EQ(Load(line + "\n"), model);
  };
  check(std::string(LONG_LINE, 'x'), {});
  check(std::string(LONG_LINE, '='), {});
  check(std::string(LONG_LINE, '['), {});
  check(std::string(LONG_LINE, ']'), {});
  check(std::string(LONG_LINE, '\0'), {});
  check("a=s=" + std::string(LONG_LINE, 'x'), {{"a\n", "1:" + std::string(1019, 'x')}});
  check("a=d=" + std::string(LONG_LINE, '9'), {{"a\n", "4:-1"}});
  check("a=b=" + std::string(LONG_LINE, 'f'), {{"a\n", "3:\xff"}});
  check("a=b=" + Repeated("01 ", LONG_LINE / 3), {{"a\n", "3:" + std::string(340, '\1')}});
}

TEST_F(RegistryHostileTest, TenMegabytesOfLineEndsHoldNothing) {
  EXPECT_EQ(Load(std::string(LONG_LINE, '\n')), RootsOnly());
}

TEST_F(RegistryHostileTest, HundredThousandKeysOfOneNameAreOneKey) {
  RegistryModel expected = RootsOnly();
  expected["k\n"] = ModelOfKey();
  EXPECT_EQ(Load(Repeated("[k]\n\n", DEEP)), expected);
}

// --- Things that are no files ---

void MakePipe(const char* path) { EXPECT_EQ(mkfifo(path, 0600), 0); }
void MakeDirectory(const char* path) { fs::create_directory(path); }
void MakeDanglingLink(const char* path) { fs::create_symlink("/etc/qamrel/nothing", path); }
void MakeLinkToItself(const char* path) { fs::create_symlink(path, path); }
void MakeLinkToDevice(const char* path) { fs::create_symlink("/dev/zero", path); }

TEST_F(RegistryHostileTest, WhatIsNoFileIsPassedOverWithoutWaiting) {
  for (const auto make :
       {MakePipe, MakeDirectory, MakeDanglingLink, MakeLinkToItself, MakeLinkToDevice}) {
    ResetRegistryDirectory();
    make(CURRENT);
    WriteFile(BACKUP, "[backup]\n");
    EXPECT_THAT(LoadTree(), Contains(Pair("backup\n", ModelOfKey())));

    fs::remove(BACKUP);
    make(BACKUP);
    WriteFile(DEFAULT, "[default]\n");
    EXPECT_THAT(LoadTree(), Contains(Pair("default\n", ModelOfKey())));

    fs::remove(DEFAULT);
    make(DEFAULT);
    EXPECT_EQ(LoadTree(), RootsOnly());
  }
}

TEST_F(RegistryHostileTest, LinkToAFileIsFollowed) {
  WriteFile("/etc/qamrel/elsewhere", "[there]\n");
  fs::create_symlink("elsewhere", CURRENT);
  EXPECT_THAT(LoadTree(), Contains(Key("there\n")));
}

}  // namespace
