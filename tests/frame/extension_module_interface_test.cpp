#include "frame/extension_module_interface.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "frame/extension_module.h"
#include "tests/frame/records.h"
#include "tests/frame/test_module.h"

namespace {

constexpr size_t BASE_SLOTS = 24;

// Calls the operation at that position of a module's virtual table, as the host does.
template <typename Result, typename... Arguments>
Result CallSlot(CIExtensionModule* module, size_t slot, Arguments... arguments) {
  using Operation = Result (*)(CIExtensionModule*, Arguments...);
  const Operation* table = nullptr;
  std::memcpy(&table, static_cast<const void*>(module), sizeof(table));
  return table[slot](module, arguments...);
}

// Tells which operation was reached.
class NumberedModule : public CIExtensionModule {
 public:
  static constexpr size_t DESTROYED = 1;

  explicit NumberedModule(size_t& reached) : m_nReached(reached) {}
  NumberedModule(const NumberedModule&) = delete;
  NumberedModule& operator=(const NumberedModule&) = delete;
  ~NumberedModule() override { m_nReached = DESTROYED; }

  uint32_t GetModuleInfo(void*) override { return Reach(2); }
  uint32_t Placeholder3() override { return Reach(3); }
  uint32_t Start(CISwitch*, uint32_t) override { return Reach(4); }
  uint32_t Stop() override { return Reach(5); }
  void Placeholder6() override { Reach(6); }
  void Placeholder7() override { Reach(7); }
  uint32_t ModuleRequest(SipJson&) override { return Reach(8); }
  uintptr_t Placeholder9() override { return Reach(9); }
  uint32_t SetCabinetNumber(uint32_t) override { return Reach(10); }
  uintptr_t Placeholder11() override { return Reach(11); }
  uintptr_t Placeholder12() override { return Reach(12); }
  uintptr_t ModuleNotification(uint32_t, uintptr_t, uintptr_t) override { return Reach(13); }
  const char* GetModuleName() override { return Reach(14) != 0 ? "" : nullptr; }
  void Placeholder15() override { Reach(15); }
  void Placeholder16() override { Reach(16); }
  void Placeholder17() override { Reach(17); }
  void Placeholder18() override { Reach(18); }
  uintptr_t Placeholder19() override { return Reach(19); }
  uintptr_t Placeholder20() override { return Reach(20); }
  uintptr_t Placeholder21() override { return Reach(21); }
  uintptr_t Placeholder22() override { return Reach(22); }
  uintptr_t OnModuleNotification(uint32_t, uintptr_t, uintptr_t) override { return Reach(23); }

  // What a module adds to the interface.
  virtual void AddedOperation() { Reach(BASE_SLOTS); }

 private:
  uint32_t Reach(size_t slot) {
    m_nReached = slot;
    return static_cast<uint32_t>(slot);
  }

  size_t& m_nReached;
};

// Adds an operation to the base, as modules do.
class GrownModule : public CExtensionModule {
 public:
  virtual uintptr_t AddedOperation() { return 4711; }
};

class ThrowingModule : public CExtensionModule {
 public:
  ThrowingModule() = default;
  ThrowingModule(const ThrowingModule&) = delete;
  ThrowingModule& operator=(const ThrowingModule&) = delete;
  ~ThrowingModule() noexcept(false) override { throw std::runtime_error("destructor"); }
};

template <typename Result, typename Object, typename... Arguments>
constexpr size_t ResultWidth(Result (Object::*)(Arguments...)) {
  return sizeof(Result);
}

}  // namespace

TEST(ExtensionModuleInterfaceTest, OperationsStandAtTheirPositions) {
  size_t reached = 0;
  NumberedModule module(reached);
  for (size_t slot = 2; slot < BASE_SLOTS; ++slot) {
    reached = 0;
    CallSlot<uint64_t>(&module, slot, uint64_t{0}, uint64_t{0}, uint64_t{0});
    EXPECT_EQ(reached, slot);
  }
}

TEST(ExtensionModuleInterfaceTest, AModuleAddsItsOperationsBehind24Slots) {
  size_t reached = 0;
  NumberedModule module(reached);
  CallSlot<void>(&module, BASE_SLOTS);
  EXPECT_EQ(reached, BASE_SLOTS);
}

TEST(ExtensionModuleInterfaceTest, TheBaseAddsNoOperations) {
  GrownModule module;
  EXPECT_EQ(CallSlot<uintptr_t>(&module, BASE_SLOTS), 4711U);
}

TEST(ExtensionModuleInterfaceTest, Slot0DestroysInPlace) {
  size_t reached = 0;
  alignas(NumberedModule) std::array<std::byte, sizeof(NumberedModule)> memory;
  CallSlot<void>(new (memory.data()) NumberedModule(reached), 0);
  EXPECT_EQ(reached, NumberedModule::DESTROYED);
}

TEST(ExtensionModuleInterfaceTest, Slot1DestroysAndFrees) {
  size_t reached = 0;
  CallSlot<void>(new NumberedModule(reached), 1);
  EXPECT_EQ(reached, NumberedModule::DESTROYED);
}

TEST(ExtensionModuleInterfaceTest, ADestructorMayThrow) {
  CIExtensionModule* module = new ThrowingModule;
  EXPECT_THROW(delete module, std::runtime_error);
}

TEST(ExtensionModuleInterfaceTest, ResultsHaveTheirWidths) {
  using Interface = CIExtensionModule;
  for (const size_t width :
       {ResultWidth(&Interface::GetModuleInfo), ResultWidth(&Interface::Placeholder3),
        ResultWidth(&Interface::Start), ResultWidth(&Interface::Stop),
        ResultWidth(&Interface::ModuleRequest), ResultWidth(&Interface::SetCabinetNumber)}) {
    EXPECT_EQ(width, sizeof(uint32_t));
  }
  for (const size_t width :
       {ResultWidth(&Interface::Placeholder9), ResultWidth(&Interface::Placeholder11),
        ResultWidth(&Interface::Placeholder12), ResultWidth(&Interface::ModuleNotification),
        ResultWidth(&Interface::Placeholder19), ResultWidth(&Interface::Placeholder20),
        ResultWidth(&Interface::Placeholder21), ResultWidth(&Interface::Placeholder22),
        ResultWidth(&Interface::OnModuleNotification)}) {
    EXPECT_EQ(width, sizeof(void*));
  }
}

TEST(ExtensionModuleInterfaceTest, DefaultsReturnTheirConstants) {
  CExtensionModule module;
  for (const size_t slot : {3U, 5U}) {
    EXPECT_EQ(CallSlot<uint32_t>(&module, slot), 1U) << slot;
  }
  for (const size_t slot : {9U, 11U, 12U, 19U, 20U, 21U, 22U}) {
    EXPECT_EQ(CallSlot<uint64_t>(&module, slot), 0U) << slot;
  }
  EXPECT_EQ(CallSlot<uint64_t>(&module, 23, 1U, uintptr_t{2}, uintptr_t{3}), 0U);
  EXPECT_EQ(CallSlot<uint64_t>(&module, 13, 1U, uintptr_t{2}, uintptr_t{3}), 0U);
  EXPECT_STREQ(CallSlot<const char*>(&module, 14), "EM_XXX");
}

TEST(ExtensionModuleInterfaceTest, DefaultsThatDoNothingReturn) {
  CExtensionModule module;
  for (const size_t slot : {6U, 7U, 15U, 16U, 17U, 18U}) {
    CallSlot<void>(&module, slot);
  }
}

TEST(ExtensionModuleInterfaceTest, TheDefaultInfoLeavesTheRecordUntouched) {
  CExtensionModule module;
  std::array<char, 64> record;
  record.fill('x');
  EXPECT_EQ(CallSlot<uint32_t>(&module, 2, static_cast<void*>(record.data())), 0U);
  EXPECT_EQ(std::string(record.data(), record.size()), std::string(record.size(), 'x'));
}

TEST(ExtensionModuleInterfaceTest, TheOtherDefaultsReturnTrueOrFalse) {
  const CabinetReset reset;
  CExtensionModule module;
  SipJson request = MakeCommands("{}");
  EXPECT_EQ(CallSlot<uint32_t>(&module, 4, static_cast<void*>(nullptr), 1U), 1U);
  EXPECT_EQ(CallSlot<uint32_t>(&module, 8, &request), 0U);
  EXPECT_EQ(CommandsOf(request), R"([{"ST":1}])");
  EXPECT_EQ(CallSlot<uint32_t>(&module, 10, 3U), 1U);
}
