#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

// What the differential tests have in common: the product and a second, straightforward reading of
// the rules get the same random cases. Each case comes from a seed of its own, which a failure
// names.

// How many seeds run as one case of the test program.
constexpr uint32_t SEEDS_AT_ONCE = 20'000;

// How many seeds a test takes. Under the address sanitizer each takes ten times as long, and what
// that finds is what the fuzzers look for, with inputs that they choose better.
#ifdef __SANITIZE_ADDRESS__
constexpr uint32_t SEEDS = SEEDS_AT_ONCE;
#else
constexpr uint32_t SEEDS = 5 * SEEDS_AT_ONCE;
#endif

// The parameter is the first of the seeds that a case takes.
class DifferentialTest : public testing::TestWithParam<uint32_t> {
 protected:
  // Calls `check` with each seed until one fails.
  template <typename Check>
  static void ForEachSeed(const Check& check) {
    for (uint32_t seed = GetParam(); seed < GetParam() + SEEDS_AT_ONCE; ++seed) {
      check(seed);
      if (HasFailure()) {
        FAIL() << "with the seed " << seed;
      }
    }
  }
};

// Runs the tests of a fixture that derives from DifferentialTest.
#define INSTANTIATE_DIFFERENTIAL_TEST(fixture) \
  INSTANTIATE_TEST_SUITE_P(FromSeed, fixture, testing::Range(0U, SEEDS, SEEDS_AT_ONCE))

class Random {
 public:
  explicit Random(uint32_t seed) : m_oEngine(seed) {}

  // From 0 to below `end`.
  uint32_t Number(size_t end) { return static_cast<uint32_t>(Bits() % end); }

  uint64_t Bits() { return m_oEngine(); }

  // True once in `times`.
  bool Once(uint32_t times) { return Number(times) == 0; }

  template <typename Item>
  const Item& PickFrom(const std::vector<Item>& items) {
    return items[Number(items.size())];
  }

  // Up to `most` letters of the alphabet.
  std::string Text(const std::string& alphabet, uint32_t most) {
    std::string text(Number(most + 1), ' ');
    for (char& letter : text) {
      letter = alphabet[Number(alphabet.size())];
    }
    return text;
  }

  // Up to `most` of the pieces.
  std::string Join(const std::vector<std::string>& pieces, uint32_t most) {
    std::string text;
    for (uint32_t count = Number(most + 1); count > 0; --count) {
      text += PickFrom(pieces);
    }
    return text;
  }

 private:
  std::mt19937_64 m_oEngine;
};
