// The components of a registry path, against the rule spelled out.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/registry/registry_path.h"
#include "tests/differential/random_case.h"

namespace {

// Splits at backslashes, then each component that still holds one at slashes. Empty ones do not
// count.
std::vector<std::string> SplitAt(const std::string& text, char separator) {
  std::vector<std::string> components = {""};
  for (const char letter : text) {
    if (letter == separator) {
      components.emplace_back();
    } else {
      components.back().push_back(letter);
    }
  }
  return components;
}

std::vector<std::string> SplitByTheRules(const std::string& path) {
  std::vector<std::string> components;
  for (const std::string& part : SplitAt(path, '\\')) {
    for (const std::string& component : SplitAt(part, '/')) {
      if (!component.empty()) {
        components.push_back(component);
      }
    }
  }
  return components;
}

class RegistryPathDifferentialTest : public DifferentialTest {};

TEST_P(RegistryPathDifferentialTest, HasTheSameComponents) {
  ForEachSeed([](uint32_t seed) {
    Random random(seed);
    const std::string text = random.Text(random.Once(2) ? "a\\/" : "ab. \xFF\\/", 24);
    CRegistryPath path(text);
    std::vector<std::string> components;
    for (std::string component(path.Next()); !component.empty(); component = path.Next()) {
      components.push_back(component);
    }
    EXPECT_EQ(components, SplitByTheRules(text)) << text;
  });
}

TEST_P(RegistryPathDifferentialTest, HasTheSameFirstSeparator) {
  ForEachSeed([](uint32_t seed) {
    Random random(seed);
    const std::string text = random.Text("abc\\/", 12);
    size_t position = 0;
    while (position < text.size() && text[position] != '\\' && text[position] != '/') {
      ++position;
    }
    EXPECT_EQ(FindRegistrySeparator(text), position < text.size() ? position : std::string::npos)
        << text;
  });
}

INSTANTIATE_DIFFERENTIAL_TEST(RegistryPathDifferentialTest);

}  // namespace
