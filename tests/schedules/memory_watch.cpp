#include "tests/schedules/memory_watch.h"

#ifdef __SANITIZE_ADDRESS__

bool MemoryWatch::IsFreed(const void* /*address*/) { return false; }
size_t MemoryWatch::End() { return 0; }
void MemoryWatch::Ignore(bool /*ignores*/) {}

#else

#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

#include "tests/schedules/scheduler.h"

namespace {

enum class Kind : uint64_t { UNWATCHED = 1, WATCHED, FREED };

// Stands before each block.
struct alignas(std::max_align_t) Head {
  size_t size;
  Kind kind;
};

size_t g_live = 0;
bool g_ignores = false;

// Grows without operator new.
struct Freed {
  Head** blocks = nullptr;
  size_t count = 0;
  size_t room = 0;

  void Add(Head* head) {
    if (count == room) {
      room = room * 2 + 64;
      blocks = static_cast<Head**>(realloc(blocks, room * sizeof(Head*)));
      if (blocks == nullptr) {
        abort();
      }
    }
    blocks[count++] = head;
  }
};

Freed g_freed;

}  // namespace

bool MemoryWatch::IsFreed(const void* address) {
  const auto wanted = reinterpret_cast<uintptr_t>(address);
  for (size_t index = 0; index < g_freed.count; ++index) {
    const auto begin = reinterpret_cast<uintptr_t>(g_freed.blocks[index] + 1);
    if (wanted >= begin && wanted < begin + g_freed.blocks[index]->size) {
      return true;
    }
  }
  return false;
}

size_t MemoryWatch::End() {
  while (g_freed.count > 0) {
    free(g_freed.blocks[--g_freed.count]);
  }
  const size_t left = g_live;
  g_live = 0;
  return left;
}

void MemoryWatch::Ignore(bool ignores) { g_ignores = ignores; }

void* operator new(size_t size) {
  auto* head = static_cast<Head*>(malloc(sizeof(Head) + size));
  if (head == nullptr) {
    throw std::bad_alloc();
  }
  const bool isWatched = !g_ignores && Scheduler::Current() != nullptr;
  *head = {size, isWatched ? Kind::WATCHED : Kind::UNWATCHED};
  g_live += isWatched ? 1 : 0;
  return head + 1;
}

void operator delete(void* memory) noexcept {
  if (memory == nullptr) {
    return;
  }
  Head* head = static_cast<Head*>(memory) - 1;
  switch (head->kind) {
    case Kind::UNWATCHED:
      free(head);
      return;
    case Kind::WATCHED:
      head->kind = Kind::FREED;
      --g_live;
      g_freed.Add(head);
      return;
    default:
      if (Scheduler* scheduler = Scheduler::Current()) {
        scheduler->Fail("memory is freed twice");
      }
      abort();
  }
}

void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
  try {
    return operator new(size);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
void operator delete(void* memory, size_t) noexcept { operator delete(memory); }
void operator delete[](void* memory) noexcept { operator delete(memory); }
void operator delete[](void* memory, size_t) noexcept { operator delete(memory); }

#endif
