#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <typeinfo>
#include <utility>
#include <vector>

#include "frame/switch_interface.h"

// A host's switch as the binary interface shows it: nothing but a table of operations, found by
// their position. It records the position of each call, so that one to the wrong operation shows.
//
// Thread safety: any thread may call.
class FakeSwitch {
 public:
  static constexpr size_t POSITIONS = 28;

  // A call with its argument registers; those that the operation does not take are arbitrary.
  struct Call {
    size_t position = 0;
    std::array<uint64_t, 4> arguments = {};
  };

  FakeSwitch() = default;
  FakeSwitch(const FakeSwitch&) = delete;
  FakeSwitch& operator=(const FakeSwitch&) = delete;

  CISwitch* Get() { return reinterpret_cast<CISwitch*>(this); }

  std::vector<Call> Calls() const {
    const std::lock_guard guard(m_oLock);
    return m_oCalls;
  }

  // What the operations return, 0 by default. Must be set before the first call.
  void Answer(std::function<uint64_t(const Call&)> answer) { m_fnAnswer = std::move(answer); }

 private:
  using Operation = uint64_t (*)(FakeSwitch*, uint64_t, uint64_t, uint64_t, uint64_t);

  // A virtual table with what precedes it, which the sanitizers read.
  struct Table {
    ptrdiff_t offsetToTop;
    const std::type_info* type;
    std::array<Operation, POSITIONS> operations;
  };

  template <size_t Position>
  static uint64_t Take(FakeSwitch* self, uint64_t first, uint64_t second, uint64_t third,
                       uint64_t fourth) {
    const Call call = {Position, {first, second, third, fourth}};
    {
      const std::lock_guard guard(self->m_oLock);
      self->m_oCalls.push_back(call);
    }
    return self->m_fnAnswer ? self->m_fnAnswer(call) : 0;
  }

  template <size_t... Positions>
  static const Operation* MakeOperations(std::index_sequence<Positions...>) {
    static const Table table = {0, &typeid(CISwitch), {&Take<Positions>...}};
    return table.operations.data();
  }

  // Must be the first member: it takes the place of the pointer to the virtual table.
  const Operation* m_pOperations = MakeOperations(std::make_index_sequence<POSITIONS>());
  mutable std::mutex m_oLock;
  std::vector<Call> m_oCalls;
  std::function<uint64_t(const Call&)> m_fnAnswer;
};
