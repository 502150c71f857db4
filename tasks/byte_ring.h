#pragma once

#include <array>
#include <cstdint>

// A queue of bytes with room for 160, in which a level of the serializer keeps the addresses of its
// task records, 8 bytes each.
//
// Not thread-safe: the serializer's lock guards it.
class CByteRing {
 public:
  static constexpr uint64_t CAPACITY = 160;

  uint64_t GetStoredBytes() const { return m_nStoredBytes; }

  // True when an address fits: stored bytes + 8 must stay below the capacity. The strict test is
  // deliberate: a full level holds 19 addresses, not 20.
  bool HasRoomForAddress() const;

  // True when at least one whole address is stored.
  bool HoldsAddress() const;

  // Appends the bytes of the address in memory order. Needs HasRoomForAddress().
  void WriteAddress(const void* address);

  // Removes and returns the oldest address. Needs HoldsAddress().
  void* ReadAddress();

  // Empties the ring; what was stored is discarded.
  void Clear();

 private:
  void WriteByte(uint8_t byte);
  uint8_t ReadByte();

  uint64_t m_nStoredBytes = 0;
  // Both may equal the capacity: they wrap at the next byte.
  uint64_t m_nReadIndex = 0;
  uint64_t m_nWriteIndex = 0;
  std::array<uint8_t, CAPACITY> m_oBuffer = {};
};
