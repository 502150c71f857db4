// The identification of the module.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "archive_module/em_talvor.h"
#include "archive_module/names.h"

namespace {

constexpr uint8_t MODULE_FLAGS = 0x03;
constexpr char DESCRIPTION[] = "Talvor extension module";

// The host's layout; members without a name here are the host's own.
struct [[gnu::packed]] ModuleInfo {
  uint32_t size;
  std::array<uint8_t, 4> reserved4;
  uint8_t setFlags;
  std::array<uint8_t, 12> reserved9;
  uint8_t clearedFlags;
  std::array<uint8_t, 20> reserved22;
  uint32_t kind;
  std::array<char, 100> name;  // its last four bytes are numbers to the host, all 0
  std::array<char, 100> description;
};
static_assert(offsetof(ModuleInfo, setFlags) == 8);
static_assert(offsetof(ModuleInfo, clearedFlags) == 21);
static_assert(offsetof(ModuleInfo, kind) == 42);
static_assert(offsetof(ModuleInfo, name) == 46);
static_assert(offsetof(ModuleInfo, description) == 146);
static_assert(sizeof(ModuleInfo) == 246);

template <size_t LENGTH>
std::array<char, 100> ZeroFilled(const char (&text)[LENGTH]) {
  static_assert(LENGTH <= 100);
  std::array<char, 100> field = {};
  std::memcpy(field.data(), text, LENGTH);
  return field;
}

}  // namespace

uint32_t EM_TALVOR::GetModuleInfo(void* record) {
  uint32_t size = 0;
  if (record != nullptr) {
    std::memcpy(&size, record, sizeof(size));
  }
  if (size < sizeof(ModuleInfo)) {
    return 0;
  }
  ModuleInfo info;
  std::memcpy(&info, record, sizeof(info));
  info.setFlags |= MODULE_FLAGS;
  info.clearedFlags &= static_cast<uint8_t>(~MODULE_FLAGS);
  info.kind = 2;
  info.name = ZeroFilled(MODULE_NAME);
  info.description = ZeroFilled(DESCRIPTION);
  std::memcpy(record, &info, sizeof(info));
  return 1;
}
