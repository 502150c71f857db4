#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>

// Random numbers that are the same for the same seed and stream. Not thread-safe: each thread has
// one of its own.
class CDraw {
 public:
  CDraw(uint32_t seed, uint32_t stream) {
    std::seed_seq start{seed, stream};
    m_oRandom.seed(start);
  }

  // A number from 0 to `limit` - 1.
  uint32_t Below(uint32_t limit) {
    return std::uniform_int_distribution<uint32_t>(0, limit - 1)(m_oRandom);
  }

  // True once in so many times.
  bool OneIn(uint32_t times) { return Below(times) == 0; }

  template <typename Element, size_t COUNT>
  const Element& Of(const std::array<Element, COUNT>& elements) {
    return elements[Below(COUNT)];
  }

 private:
  std::mt19937 m_oRandom;
};
