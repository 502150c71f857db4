#include "platform/registry/registry_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/registry/registry_node.h"

namespace {

class RegistryWriterTest : public ::testing::Test {
 protected:
  static void Put(CRegistryNode& node, CRegistryEntry entry) {
    std::vector<CRegistryEntry> replaced;
    node.Store(std::move(entry), replaced);
  }

  static std::string Written(CRegistryEntry entry) {
    CRegistryNode node;
    Put(node, std::move(entry));
    return WriteRegistryText(node);
  }

  // That the tree is written as `text`, in pieces of one size and what is left.
  void ExpectPiecesOf(const std::string& text) {
    std::string written;
    std::vector<size_t> sizes;
    WriteRegistryText(m_oTop, [&](std::string_view piece) {
      written += piece;
      sizes.push_back(piece.size());
    });
    EXPECT_EQ(written, text);
    std::vector<size_t> expected(text.size() / 65'536, 65'536);
    expected.push_back(text.size() % 65'536);
    EXPECT_EQ(sizes, expected);
  }

  CRegistryNode m_oTop;
};

TEST_F(RegistryWriterTest, EmptyNodeIsAnEmptyLine) { EXPECT_EQ(WriteRegistryText(m_oTop), "\n"); }

TEST_F(RegistryWriterTest, WritesTexts) {
  EXPECT_EQ(Written(CRegistryEntry::MakeString("name", REG_SZ, "a b")), "name=s=a b\n\n");
  EXPECT_EQ(Written(CRegistryEntry::MakeString("name", REG_SZ, "")), "name=s=\n\n");
  EXPECT_EQ(Written(CRegistryEntry::MakeString("a b", REG_EXPAND_SZ, "%PATH%")),
            "a b=es=%PATH%\n\n");
}

TEST_F(RegistryWriterTest, WritesIntegersInSignedDecimal) {
  EXPECT_EQ(Written(CRegistryEntry::MakeInteger("n", 0)), "n=d=0\n\n");
  EXPECT_EQ(Written(CRegistryEntry::MakeInteger("n", -1)), "n=d=-1\n\n");
  EXPECT_EQ(Written(CRegistryEntry::MakeInteger("n", INT32_MIN)), "n=d=-2147483648\n\n");
  EXPECT_EQ(Written(CRegistryEntry::MakeInteger("n", INT32_MAX)), "n=d=2147483647\n\n");
}

TEST_F(RegistryWriterTest, WritesBytesAsLowerCaseDigitsEachWithABlank) {
  EXPECT_EQ(Written(CRegistryEntry::MakeBinary("ab", "\x01\xff")), "ab=b=01 ff \n\n");
  EXPECT_EQ(Written(CRegistryEntry::MakeBinary("ab", "")), "ab=b=\n\n");
  std::string bytes;
  std::string text;
  for (int byte = 0; byte < 256; ++byte) {
    constexpr char DIGITS[] = "0123456789abcdef";
    bytes += static_cast<char>(byte);
    text += {DIGITS[byte / 16], DIGITS[byte % 16], ' '};
  }
  EXPECT_EQ(Written(CRegistryEntry::MakeBinary("all", bytes)), "all=b=" + text + "\n\n");
}

TEST_F(RegistryWriterTest, WritesValuesBeforeSubkeysEachInOrder) {
  m_oTop.CreateKey("b");
  m_oTop.CreateKey("a");
  Put(m_oTop, CRegistryEntry::MakeInteger("d", 1));
  Put(m_oTop, CRegistryEntry::MakeInteger("c", 2));
  Put(m_oTop, CRegistryEntry::MakeInteger("aa", 3));
  EXPECT_EQ(WriteRegistryText(m_oTop), "aa=d=3\nc=d=2\nd=d=1\n[a]\n\n[b]\n\n\n");
}

TEST_F(RegistryWriterTest, HeadersHoldTheirOwnNameAndEmptyLinesCloseNodes) {
  const auto outer = m_oTop.CreateKey("outer");
  Put(*outer, CRegistryEntry::MakeInteger("n", 1));
  Put(*outer->CreateKey("inner"), CRegistryEntry::MakeInteger("n", 2));
  outer->CreateKey("last");
  m_oTop.CreateKey("sibling");
  EXPECT_EQ(WriteRegistryText(m_oTop),
            "[outer]\nn=d=1\n[inner]\nn=d=2\n\n[last]\n\n\n[sibling]\n\n\n");
}

TEST_F(RegistryWriterTest, LeavesDeletedKeysOut) {
  m_oTop.CreateKey("a");
  m_oTop.CreateKey("b")->CreateKey("c");
  std::shared_ptr<CRegistryNode> deleted;
  m_oTop.DeleteKey("b", deleted);
  EXPECT_EQ(WriteRegistryText(m_oTop), "[a]\n\n\n");
}

TEST_F(RegistryWriterTest, LeavesTheNodeAsItIs) {
  ParseRegistryText("v=d=1\n[a]\n[b]\n\n\n", m_oTop);
  const std::string text = WriteRegistryText(m_oTop);
  EXPECT_EQ(WriteRegistryText(m_oTop), text);
}

TEST_F(RegistryWriterTest, TextEndsAtItsFirstLineEnd) {
  EXPECT_EQ(Written(CRegistryEntry::MakeString("name", REG_SZ, "first\nsecond")),
            "name=s=first\n\n");
  EXPECT_EQ(Written(CRegistryEntry::MakeString("name", REG_EXPAND_SZ, "\n")), "name=es=\n\n");
}

TEST_F(RegistryWriterTest, DataAreCutWhereTheLineWouldBeReadAsTwo) {
  const std::string text(2000, 'x');
  EXPECT_EQ(Written(CRegistryEntry::MakeString("a", REG_SZ, text)),
            "a=s=" + text.substr(0, 1019) + "\n\n");
  EXPECT_EQ(Written(CRegistryEntry::MakeString("a", REG_EXPAND_SZ, text)),
            "a=es=" + text.substr(0, 1018) + "\n\n");
  for (const size_t length : {1018U, 1019U, 1020U}) {
    EXPECT_EQ(Written(CRegistryEntry::MakeString("a", REG_SZ, text.substr(0, length))),
              "a=s=" + text.substr(0, std::min<size_t>(length, 1019)) + "\n\n");
  }
  for (const auto& [name, bytes] :
       {std::pair("", 340U), {"a", 339U}, {"abc", 339U}, {"abcd", 338U}}) {
    std::string written = std::string(name) + "=b=";
    for (size_t count = 0; count < bytes; ++count) {
      written += "78 ";
    }
    EXPECT_EQ(Written(CRegistryEntry::MakeBinary(name, text)), written + "\n\n");
  }
}

// Any of them would displace what follows.
TEST_F(RegistryWriterTest, LeavesOutWhatHasNoLineOfItsOwn) {
  const std::string longName(1021, 'n');
  m_oTop.CreateKey("key\n\n")->CreateKey("below");
  m_oTop.CreateKey(std::string(1022, 'k'))->CreateKey("below");
  Put(m_oTop, CRegistryEntry::MakeString("value\n\n", REG_SZ, "x"));
  Put(m_oTop, CRegistryEntry::MakeString("[key]", REG_SZ, "x"));
  Put(m_oTop, CRegistryEntry::MakeString("[key", REG_SZ, "x]"));
  Put(m_oTop, CRegistryEntry::MakeString(longName, REG_SZ, "x"));
  Put(m_oTop, CRegistryEntry::MakeInteger(longName + "n", 1));
  Put(m_oTop, CRegistryEntry::MakeBinary(longName + "nn", "x"));
  Put(m_oTop, CRegistryEntry::MakeInteger(std::string(1018, 'n'), 123));
  Put(m_oTop, CRegistryEntry::MakeString(std::string(1024, 'n'), REG_SZ, "x"));
  Put(m_oTop, CRegistryEntry::MakeString(std::string(100'000, 'n'), REG_SZ, "x"));
  EXPECT_EQ(WriteRegistryText(m_oTop), "\n");
  CRegistryNode other;
  other.CreateKey(longName);
  const std::string name(1018, 'n');
  Put(other, CRegistryEntry::MakeInteger(name, 12));
  EXPECT_EQ(WriteRegistryText(other), name + "=d=12\n[" + longName + "]\n\n\n");
}

TEST_F(RegistryWriterTest, NameWithAnEqualsSignIsCutWhenReadBack) {
  Put(m_oTop, CRegistryEntry::MakeString("a=d=1", REG_SZ, "text"));
  const std::string text = WriteRegistryText(m_oTop);
  EXPECT_EQ(text, "a=d=1=s=text\n\n");
  CRegistryNode loaded;
  ParseRegistryText(text, loaded);
  EXPECT_EQ(WriteRegistryText(loaded), "a=d=1\n\n");
}

TEST_F(RegistryWriterTest, WhatIsWrittenReadsBackTheSame) {
  const std::string text =
      "a b=s= text \nbytes=b=00 ff \nempty=s=\nexpand=es=%A%%\nnone=b=\nnumber=d=-7\n"
      "[key one]\nx=d=1\n[inner]\ny=s=[z]\n\n\n[key two]\n\n\n";
  ParseRegistryText(text, m_oTop);
  EXPECT_EQ(WriteRegistryText(m_oTop), text);
}

// A line may end at any distance from the end of a piece.
TEST_F(RegistryWriterTest, PiecesOfOneSizeMakeTheWholeText) {
  std::string expected;
  for (const char* key : {"a", "b"}) {
    const auto node = m_oTop.CreateKey(key);
    expected += std::string("[") + key + "]\n";
    for (int value = 10'000; value < 10'500; ++value) {
      const std::string name = std::to_string(value);
      const std::string text(static_cast<size_t>(value * 7 % 1000), 'x');
      Put(*node, CRegistryEntry::MakeString(name, REG_SZ, text));
      expected += name + "=s=" + text + "\n";
    }
    expected += "\n";
  }
  expected += "\n";
  ASSERT_GT(expected.size(), 4 * 65'536U);
  ExpectPiecesOf(expected);
}

// The sink may take its time, for instance when it writes to a disk.
TEST_F(RegistryWriterTest, KeysCanBeReadWhileAPieceIsHandedOut) {
  const auto node = m_oTop.CreateKey("large");
  for (int value = 0; value < 200; ++value) {
    Put(*node, CRegistryEntry::MakeString(std::to_string(value), REG_SZ, std::string(1000, 'x')));
  }
  int reads = 0;
  WriteRegistryText(m_oTop, [&](std::string_view) {
    std::thread([&] {
      RegistryValue value;
      reads += node->ReadValue("100", value) ? 1 : 0;
    }).join();
  });
  EXPECT_GT(reads, 2);
}

// A key of lines of 1,000 bytes, which takes several pieces.
class RegistryPiecesTest : public RegistryWriterTest {
 protected:
  static constexpr int FIRST = 1000;
  static constexpr int END = 1200;
  static constexpr int IN_FIRST_PIECE = 66;  // the last of them in part

  RegistryPiecesTest() : m_pKey(m_oTop.CreateKey("large")) {
    for (int value = FIRST; value < END; ++value) {
      Put(*m_pKey, Value(std::to_string(value)));
    }
  }

  static CRegistryEntry Value(const std::string& name) {
    return CRegistryEntry::MakeString(name, REG_SZ, std::string(992, 'x'));
  }

  static std::string Lines(int first, int end) {
    std::string lines;
    for (int value = first; value < end; ++value) {
      lines += std::to_string(value) + "=s=" + std::string(992, 'x') + "\n";
    }
    return lines;
  }

  // What is written when `change` is made after the first piece.
  template <typename Change>
  std::string WrittenWith(const Change& change) {
    std::string written;
    WriteRegistryText(m_oTop, [&](std::string_view piece) {
      if (written.empty()) {
        change();
      }
      written += piece;
    });
    return written;
  }

  void Remove(const char* name) {
    std::vector<CRegistryEntry> removed;
    ASSERT_TRUE(m_pKey->Remove(name, removed));
  }

  const std::shared_ptr<CRegistryNode> m_pKey;
};

TEST_F(RegistryPiecesTest, GoesOnAfterAValueThatWasRemovedMeanwhile) {
  const int next = FIRST + IN_FIRST_PIECE;
  EXPECT_EQ(WrittenWith([&] { Remove(std::to_string(next).c_str()); }),
            "[large]\n" + Lines(FIRST, next) + Lines(next + 1, END) + "\n\n");
}

TEST_F(RegistryPiecesTest, WritesNoValueTwiceWhenOthersComeAndGo) {
  const std::string next = std::to_string(FIRST + IN_FIRST_PIECE);
  const std::string later = next + "a=s=" + std::string(992, 'x') + "\n";
  EXPECT_EQ(WrittenWith([&] {
              Remove("1000");
              Put(*m_pKey, Value("0"));
              Put(*m_pKey, Value("00"));
              Put(*m_pKey, Value(next + "a"));
            }),
            "[large]\n" + Lines(FIRST, FIRST + IN_FIRST_PIECE + 1) + later +
                Lines(FIRST + IN_FIRST_PIECE + 1, END) + "\n\n");
}

TEST_F(RegistryPiecesTest, WritesTheSubkeysOfAllPiecesAfterTheValues) {
  for (const char* name : {"0", "1100a", "2"}) {
    m_pKey->CreateKey(name);
  }
  EXPECT_EQ(WriteRegistryText(m_oTop),
            "[large]\n" + Lines(FIRST, END) + "[0]\n\n[1100a]\n\n[2]\n\n\n\n");
}

TEST_F(RegistryPiecesTest, EndsAKeyThatWasDeletedMeanwhile) {
  m_oTop.CreateKey("other");
  EXPECT_EQ(WrittenWith([&] { m_pKey->deleteNode(); }),
            "[large]\n" + Lines(FIRST, FIRST + IN_FIRST_PIECE) + "\n[other]\n\n\n");
}

TEST_F(RegistryWriterTest, APieceMayEndWithTheLastValue) {
  for (int value = 10; value < 74; ++value) {
    Put(m_oTop, CRegistryEntry::MakeString(std::to_string(value), REG_SZ, std::string(1018, 'x')));
  }
  std::vector<size_t> sizes;
  WriteRegistryText(m_oTop, [&](std::string_view piece) { sizes.push_back(piece.size()); });
  EXPECT_EQ(sizes, (std::vector<size_t>{65'536, 1}));
}

// A piece needs the most room then.
TEST_F(RegistryWriterTest, LongestLinesMayBeginWithTheLastByteOfAPiece) {
  const auto line = [](const std::string& name, size_t length) {
    return name + "=s=" + std::string(length - name.size() - 4, 'x') + "\n";
  };
  std::string begin;
  for (int value = 10; value < 73; ++value) {
    begin += line(std::to_string(value), 1024);
  }
  begin += line("73", 1023);
  const std::string value = line("74", 1024);
  const std::string header = "[" + std::string(1021, '0') + "]\n";
  for (const std::string& rest : {value + "\n", value + header + "\n\n", header + value + "\n\n",
                                  header + header + "\n\n\n"}) {
    CRegistryNode node;
    ParseRegistryText(begin + rest, node);
    EXPECT_EQ(WriteRegistryText(node), begin + rest);
  }
}

TEST_F(RegistryWriterTest, PiecesEndInAllKindsOfLines) {
  std::string expected;
  for (int key = 10'000; key < 30'000; ++key) {
    const std::string name = std::to_string(key) + std::string(static_cast<size_t>(key % 7), 'x');
    m_oTop.CreateKey(name)->CreateKey("inner");
    expected += "[" + name + "]\n[inner]\n\n\n";
  }
  ExpectPiecesOf(expected + "\n");
}

// They are copied in words.
TEST_F(RegistryWriterTest, WritesStringsOfEachLengthAsTheyWereRead) {
  const auto letters = [](size_t count) {
    std::string text;
    while (text.size() < count) {
      text += static_cast<char>('a' + text.size() % 26);
    }
    return text;
  };
  for (size_t length = 0; length < 70; ++length) {
    for (size_t other = 0; other < 70; ++other) {
      const std::string text = letters(length) + "=s=" + letters(other) + "\n\n";
      CRegistryNode node;
      ParseRegistryText(text, node);
      EXPECT_EQ(WriteRegistryText(node), text);
    }
  }
}

TEST_F(RegistryWriterTest, WritesAStringThatWasReadAsTheSameLine) {
  const std::string longest = "long=s=" + std::string(1016, 'x') + "\n";
  for (const std::string& line : {std::string("[open=s=text\n"), std::string("=s=]\n"),
                                  std::string("a=s=s=\n"), std::string("e=es=%a%]\n"), longest}) {
    CRegistryNode node;
    ParseRegistryText(line + "last=d=1\n", node);
    EXPECT_TRUE(WriteRegistryText(node).find(line) != std::string::npos) << line;
  }
}

}  // namespace
