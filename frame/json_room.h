#pragma once

#include <rapidjson/document.h>

#include <cstddef>

// Calls `use` with an allocator that gives out `size` bytes (in pieces of 8) of the memory of
// `owner`, which keeps them. Returns false and calls nothing when the memory is exhausted: the
// library writes through the null pointer that it gets when it runs out while it adds something.
template <typename Use>
bool WithJsonRoom(rapidjson::Document::AllocatorType& owner, size_t size, const Use& use) {
  constexpr size_t OWN_NEED = 128;  // what an allocator keeps of its buffer for itself, at most
  void* const room = owner.Malloc(size + OWN_NEED);
  if (room == nullptr) {
    return false;
  }
  rapidjson::Document::AllocatorType allocator(room, size + OWN_NEED);
  use(allocator);
  return true;
}
