#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <new>

#include "platform/event.h"
#include "platform/thread.h"
#include "tests/support/trace_session.h"

namespace {

// Allocations of this thread that still succeed; negative: all.
thread_local int t_nAllocations = -1;

void* Allocate(size_t size) {
  if (t_nAllocations == 0) {
    throw std::bad_alloc();
  }
  if (t_nAllocations > 0) {
    --t_nAllocations;
  }
  if (void* memory = malloc(size)) {
    return memory;
  }
  throw std::bad_alloc();
}

}  // namespace

void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
// Not inlined, so that no compiler sees free() meet the pointer of a new-expression.
[[gnu::noinline]] void operator delete(void* memory) noexcept { free(memory); }
[[gnu::noinline]] void operator delete[](void* memory) noexcept { free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t /*size*/) noexcept { free(memory); }
[[gnu::noinline]] void operator delete[](void* memory, size_t /*size*/) noexcept { free(memory); }

namespace {

// Runs `succeeds` with ever more allocations until it does. Returns how often it failed.
int FailuresOf(const std::function<bool()>& succeeds) {
  for (int allocations = 0; allocations < 100; ++allocations) {
    t_nAllocations = allocations;
    const bool hasSucceeded = succeeds();
    t_nAllocations = -1;
    if (hasSucceeded) {
      return allocations;
    }
  }
  return 100;
}

// Longer than what a std::string keeps in itself.
constexpr char NAME[] = "the bell of the front door of the house";

TEST(OutOfMemoryTest, LeavesAnEmptyHandleOfAnEvent) {
  EXPECT_EQ(FailuresOf([] { return CEvent(true, false).Check(); }), 1);
}

TEST(OutOfMemoryTest, LeavesNameAndLocksOfAnEventFree) {
  const CEvent first(true, true);  // makes what all events share
  const int failures = FailuresOf([] { return CEvent(true, false, NAME).Check(); });
  EXPECT_GE(failures, 3);
  EXPECT_LT(failures, 100);
  const TraceSession session(5);
  const CEvent event(false, false, NAME);
  EXPECT_FALSE(event.Check());
}

TEST(OutOfMemoryTest, StartsNoThread) {
  CThread thread;
  const auto start = [&] {
    return thread.Start([](void*) -> void* { return nullptr; }, nullptr, 0, false, 0, 0, true);
  };
  t_nAllocations = 0;
  EXPECT_FALSE(start());
  t_nAllocations = -1;
  EXPECT_EQ(thread.GetHandle(), 0U);
  EXPECT_EQ(FailuresOf(start), 2);
  EXPECT_TRUE(thread.WaitForTermination(CThread::INFINITE_TIME));
}

}  // namespace
