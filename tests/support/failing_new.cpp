#include "tests/support/failing_new.h"

#include <cstdlib>
#include <new>

namespace {

thread_local bool t_isArmed = false;
thread_local int64_t t_successes = 0;
thread_local int64_t t_failures = 0;
thread_local bool t_hasFailed = false;
thread_local FailingNew::Raise t_raise = nullptr;

}  // namespace

FailingNew::FailingNew(int64_t successes, int64_t failures, Raise raise) {
  t_successes = successes;
  t_failures = failures;
  t_hasFailed = false;
  t_raise = raise;
  t_isArmed = true;
}

FailingNew::~FailingNew() { Stop(); }

void FailingNew::Stop() { t_isArmed = false; }

bool FailingNew::HasFailed() const { return t_hasFailed; }

void* operator new(size_t size) {
  if (t_isArmed && t_successes-- <= 0 && t_failures-- > 0) {
    t_hasFailed = true;
    if (t_raise != nullptr) {
      t_raise();
    }
    throw std::bad_alloc();
  }
  void* memory = std::malloc(size > 0 ? size : 1);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

// The sanitizer's own forms of these do not call the one above.

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

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory, size_t) noexcept { std::free(memory); }
