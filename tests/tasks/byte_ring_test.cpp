#include "tasks/byte_ring.h"

#include <gmock/gmock.h>

#include <array>
#include <bit>
#include <cstdint>

namespace {

using testing::Each;

constexpr uint64_t ADDRESSES_OF_A_FULL_RING = 19;

// A different address for each number, with eight different bytes.
void* Address(uint64_t number) { return std::bit_cast<void*>(number * 0x0102030405060709U); }

void WriteAddresses(CByteRing& ring, uint64_t first, uint64_t count) {
  for (uint64_t number = first; number < first + count; ++number) {
    ring.WriteAddress(Address(number));
  }
}

void ExpectAddresses(CByteRing& ring, uint64_t first, uint64_t count) {
  for (uint64_t number = first; number < first + count; ++number) {
    EXPECT_EQ(ring.ReadAddress(), Address(number)) << number;
  }
}

TEST(ByteRingTest, StartsEmpty) {
  const CByteRing ring;
  EXPECT_EQ(ring.GetStoredBytes(), 0U);
  EXPECT_FALSE(ring.HoldsAddress());
  EXPECT_TRUE(ring.HasRoomForAddress());
}

TEST(ByteRingTest, HoldsABufferOf160Bytes) { EXPECT_EQ(CByteRing::CAPACITY, 160U); }

TEST(ByteRingTest, CountsEightBytesForAnAddress) {
  CByteRing ring;
  WriteAddresses(ring, 1, 2);
  EXPECT_EQ(ring.GetStoredBytes(), 16U);
  EXPECT_TRUE(ring.HoldsAddress());
  ring.ReadAddress();
  EXPECT_EQ(ring.GetStoredBytes(), 8U);
  EXPECT_TRUE(ring.HoldsAddress());
  ring.ReadAddress();
  EXPECT_EQ(ring.GetStoredBytes(), 0U);
  EXPECT_FALSE(ring.HoldsAddress());
}

TEST(ByteRingTest, GivesAddressesBackInTheOrderWritten) {
  CByteRing ring;
  WriteAddresses(ring, 1, 3);
  ExpectAddresses(ring, 1, 3);
}

TEST(ByteRingTest, IsFullWithNineteenAddresses) {
  CByteRing ring;
  WriteAddresses(ring, 1, ADDRESSES_OF_A_FULL_RING - 1);
  EXPECT_TRUE(ring.HasRoomForAddress());
  WriteAddresses(ring, ADDRESSES_OF_A_FULL_RING, 1);
  EXPECT_FALSE(ring.HasRoomForAddress());
  ring.ReadAddress();
  EXPECT_TRUE(ring.HasRoomForAddress());
}

TEST(ByteRingTest, WrapsInsideItsBufferWhateverItHolds) {
  for (uint64_t held = 1; held <= ADDRESSES_OF_A_FULL_RING; ++held) {
    struct {
      CByteRing ring;
      std::array<uint8_t, 4096> behind = {};
    } memory;
    uint64_t next = 1;
    for (int round = 0; round < 41; ++round, next += held) {
      WriteAddresses(memory.ring, next, held);
      ExpectAddresses(memory.ring, next, held);
    }
    EXPECT_THAT(memory.behind, Each(0));
  }
}

TEST(ByteRingTest, ClearForgetsWhatWasStored) {
  CByteRing ring;
  WriteAddresses(ring, 1, 3);
  ring.ReadAddress();
  ring.Clear();
  EXPECT_EQ(ring.GetStoredBytes(), 0U);
  EXPECT_FALSE(ring.HoldsAddress());
  WriteAddresses(ring, 7, ADDRESSES_OF_A_FULL_RING);
  ExpectAddresses(ring, 7, ADDRESSES_OF_A_FULL_RING);
}

}  // namespace
