#pragma once

#include <endian.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/registry/registry_entry.h"

// Comparing the names of registry entries, eight bytes at a time. No name holds a NUL.

// Eight bytes as a number that compares as they do.
inline uint64_t LoadRegistryWord(const char* bytes) {
  uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof(word));
  return be64toh(word);
}

// The position of the first byte that differs, or the length of the shorter name. The names are
// known to be the same before `start`.
inline size_t FindNameDifference(std::string_view left, std::string_view right, size_t start) {
  const size_t end = std::min(left.size(), right.size());
  if (end < sizeof(uint64_t)) {
    while (start < end && left[start] == right[start]) {
      ++start;
    }
    return start;
  }
  // The last word ends with the shorter name and may begin before `start`.
  const size_t last = end - sizeof(uint64_t);
  for (size_t position = std::min(start, last);;
       position = std::min(position + sizeof(uint64_t), last)) {
    const uint64_t difference =
        LoadRegistryWord(left.data() + position) ^ LoadRegistryWord(right.data() + position);
    if (difference != 0) {
      return position + static_cast<size_t>(std::countl_zero(difference)) / 8;
    }
    if (position == last) {
      return end;
    }
  }
}

// Eight bytes of a name from `start` on, or fewer and its terminator, as a number. Compared with
// the same bytes of an entry it tells which name comes first: a terminator comes before every byte
// of a name, so that what follows it decides nothing.
class CRegistryNameWindow {
 public:
  // `start` is at most the length of the name.
  CRegistryNameWindow(std::string_view name, size_t start) : m_nStart(start) {
    const size_t left = name.size() - start;
    if (left >= SIZE) {
      m_nWord = LoadRegistryWord(name.data() + start);
      return;
    }
    const size_t unused = 8 * (SIZE - 1 - left);  // bits after the terminator
    m_nWord = LoadLastWord(name) << 8 << unused;
    m_nMask <<= unused;
    m_bHoldsEnd = true;
  }

  uint64_t Get() const { return m_nWord; }
  // Of an entry whose name has at least `start` bytes.
  uint64_t Of(const CRegistryEntry& entry) const {
    static_assert(SIZE <= CRegistryEntry::READABLE);
    return LoadRegistryWord(entry.GetName().data() + m_nStart) & m_nMask;
  }

  size_t GetStart() const { return m_nStart; }
  size_t GetEnd() const { return m_nStart + SIZE; }
  bool HoldsEndOfName() const { return m_bHoldsEnd; }

 private:
  static constexpr size_t SIZE = sizeof(uint64_t);

  // The last eight bytes of a name; of a shorter one all, after zeros.
  static uint64_t LoadLastWord(std::string_view name) {
    if (name.size() >= SIZE) {
      return LoadRegistryWord(name.data() + name.size() - SIZE);
    }
    uint64_t word = 0;
    for (const char byte : name) {
      word = word << 8 | static_cast<uint8_t>(byte);
    }
    return word;
  }

  size_t m_nStart;
  uint64_t m_nWord = 0;
  uint64_t m_nMask = ~uint64_t{0};
  bool m_bHoldsEnd = false;
};
