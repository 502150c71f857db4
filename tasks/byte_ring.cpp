#include "tasks/byte_ring.h"

#include <bit>

namespace {

using AddressBytes = std::array<uint8_t, sizeof(void*)>;
static_assert(sizeof(AddressBytes) == 8);

}  // namespace

bool CByteRing::HasRoomForAddress() const {
  return m_nStoredBytes + sizeof(AddressBytes) < CAPACITY;
}

bool CByteRing::HoldsAddress() const { return m_nStoredBytes >= sizeof(AddressBytes); }

void CByteRing::WriteAddress(const void* address) {
  for (const uint8_t byte : std::bit_cast<AddressBytes>(address)) {
    WriteByte(byte);
  }
}

void* CByteRing::ReadAddress() {
  AddressBytes bytes = {};
  for (uint8_t& byte : bytes) {
    byte = ReadByte();
  }
  return std::bit_cast<void*>(bytes);
}

void CByteRing::Clear() {
  m_nStoredBytes = 0;
  m_nReadIndex = 0;
  m_nWriteIndex = 0;
}

void CByteRing::WriteByte(uint8_t byte) {
  if (m_nWriteIndex == CAPACITY) {
    m_nWriteIndex = 0;
  }
  m_oBuffer[m_nWriteIndex++] = byte;
  ++m_nStoredBytes;
}

uint8_t CByteRing::ReadByte() {
  if (m_nReadIndex == CAPACITY) {
    m_nReadIndex = 0;
  }
  --m_nStoredBytes;
  return m_oBuffer[m_nReadIndex++];
}
