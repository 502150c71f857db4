#pragma once

// Included before everything else in each source of a schedule's program: the product's atomics
// become switch points, and its trace lines are told, without a word of it in the product. Both
// hold for what is included after this header; what stands here keeps the real atomics.

#include <bits/stdc++.h>

#include "tests/schedules/product_hooks.h"
#include "trace/debug_client.h"

// NOLINTBEGIN(cert-dcl58-cpp,google-explicit-constructor): it stands for std::atomic
namespace std {

template <typename T>
class switching_atomic {
 public:
  constexpr switching_atomic() noexcept = default;
  constexpr switching_atomic(T value) noexcept : m_oValue(value) {}
  switching_atomic(const switching_atomic&) = delete;
  switching_atomic& operator=(const switching_atomic&) = delete;

  T load(memory_order = memory_order_seq_cst) const { return Touched().load(); }
  void store(T value, memory_order = memory_order_seq_cst) { Touched().store(value); }
  T exchange(T value, memory_order = memory_order_seq_cst) { return Touched().exchange(value); }
  bool compare_exchange_strong(T& expected, T value, memory_order = memory_order_seq_cst,
                               memory_order = memory_order_seq_cst) {
    return Touched().compare_exchange_strong(expected, value);
  }
  operator T() const { return load(); }
  T operator=(T value) {
    store(value);
    return value;
  }
  T operator++() { return ++Touched(); }
  T operator--() { return --Touched(); }
  T operator++(int) { return Touched()++; }
  T operator--(int) { return Touched()--; }
  T fetch_add(T value) { return Touched().fetch_add(value); }
  T fetch_sub(T value) { return Touched().fetch_sub(value); }

 private:
  atomic<T>& Touched() const {
    schedules::TouchShared(this);
    return m_oValue;
  }

  mutable atomic<T> m_oValue{};
};

}  // namespace std
// NOLINTEND(cert-dcl58-cpp,google-explicit-constructor)

#define atomic switching_atomic

#undef DEBUG_TRACE
#undef DEBUG_TRACE_NOTHROW
#define DEBUG_TRACE(level, ...)              \
  do {                                       \
    if (schedules::IsTold()) {               \
      schedules::TraceScope traceScope;      \
      traceScope.Tell((level), __VA_ARGS__); \
    }                                        \
  } while (false)
#define DEBUG_TRACE_NOTHROW DEBUG_TRACE
