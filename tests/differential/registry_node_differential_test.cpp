// Finding the entries of a registry key, against a map.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/registry/registry_node.h"
#include "tests/differential/random_case.h"

namespace {

class RegistryNodeDifferentialTest : public DifferentialTest {};

// Names that begin alike, end within each other and differ anywhere in the first thirty bytes.
std::string RandomName(Random& random, const std::string& beginning) {
  const std::string shared = beginning.substr(0, random.Number(beginning.size() + 1));
  return shared + random.Text(random.Once(4) ? "a\x01\xFF" : "ab", random.Once(3) ? 12 : 3);
}

// A key and what it should hold: the text of each value, "(key)" for a subkey.
class Pair {
 public:
  void Change(Random& random, const std::string& name) {
    std::vector<CRegistryEntry> replaced;
    switch (random.Number(4)) {
      case 0:
        m_oNode.Remove(name, replaced);
        m_oExpected.erase(name);
        break;
      case 1:
        if (m_oNode.CreateKey(name) != nullptr) {
          m_oExpected[name] = "(key)";
        }
        break;
      default:
        m_oNode.Store(CRegistryEntry::MakeString(name, REG_SZ, "of " + name), replaced);
        m_oExpected[name] = "of " + name;
    }
  }

  void ExpectSame(const std::string& name) {
    const auto expected = m_oExpected.find(name);
    const std::string content = expected != m_oExpected.end() ? expected->second : "(none)";
    EXPECT_EQ(m_oNode.OpenKey(name) != nullptr, content == "(key)") << name;
    RegistryValue value;
    const bool isValue = m_oNode.ReadValue(name, value);
    EXPECT_EQ(isValue ? value.bytes.c_str() : "(none)", content == "(key)" ? "(none)" : content)
        << name;
  }

  void ExpectSameNames() {
    auto expected = m_oExpected.begin();
    m_oNode.ForEach([&](const CRegistryEntry& entry) {
      ASSERT_NE(expected, m_oExpected.end()) << entry.GetName();
      EXPECT_EQ(entry.GetName(), expected->first);
      ++expected;
    });
    EXPECT_EQ(expected, m_oExpected.end());
  }

 private:
  CRegistryNode m_oNode;
  std::map<std::string, std::string> m_oExpected;  // in byte order
};

TEST_P(RegistryNodeDifferentialTest, HasTheSameEntries) {
  ForEachSeed([](uint32_t seed) {
    Random random(seed);
    const std::string beginning = random.Text(random.Once(2) ? "ab" : "Value0", 24);
    Pair pair;
    for (int step = 0; step < 24; ++step) {
      pair.Change(random, RandomName(random, beginning));
      pair.ExpectSame(RandomName(random, beginning));
    }
    pair.ExpectSameNames();
  });
}

INSTANTIATE_DIFFERENTIAL_TEST(RegistryNodeDifferentialTest);

}  // namespace
