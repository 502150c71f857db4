// Preloaded, it counts the allocations and locks of a program. It stands in front of the C
// library's functions, which do the work.

#include "costs/counted_calls.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cstddef>

// The C library's own names of what is replaced here: to look them up would need memory.
extern "C" void* __libc_malloc(size_t size);                 // NOLINT(bugprone-reserved-identifier)
extern "C" void* __libc_calloc(size_t count, size_t size);   // NOLINT(bugprone-reserved-identifier)
extern "C" void* __libc_realloc(void* memory, size_t size);  // NOLINT(bugprone-reserved-identifier)
extern "C" void* __libc_memalign(size_t alignment,
                                 size_t size);  // NOLINT(bugprone-reserved-identifier)

namespace {

std::atomic<uint64_t> g_nAllocations = 0;
std::atomic<uint64_t> g_nBytes = 0;
std::atomic<uint64_t> g_nLocks = 0;

void AddAllocation(size_t size) {
  ++g_nAllocations;
  g_nBytes += size;
}

using Lock = int (*)(pthread_mutex_t*);
std::atomic<Lock> g_pLock = nullptr;

}  // namespace

extern "C" void ReadCountedCalls(CountedCalls* calls) {
  *calls = {g_nAllocations, g_nBytes, g_nLocks};
}

extern "C" void* malloc(size_t size) {
  AddAllocation(size);
  return __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size) {
  AddAllocation(count * size);
  return __libc_calloc(count, size);
}

extern "C" void* realloc(void* memory, size_t size) {
  AddAllocation(size);
  return __libc_realloc(memory, size);
}

extern "C" void* aligned_alloc(size_t alignment, size_t size) {
  AddAllocation(size);
  return __libc_memalign(alignment, size);
}

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
  ++g_nLocks;
  Lock lock = g_pLock;
  if (lock == nullptr) {
    lock = reinterpret_cast<Lock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    g_pLock = lock;
  }
  return lock(mutex);
}
