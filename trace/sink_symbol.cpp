#include "trace/sink_symbol.h"

#include <dlfcn.h>
#include <link.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace {

constexpr size_t OPERATIONS = 9;  // in the virtual table of ITraceSink
constexpr std::array<size_t, 3> CALLED_OPERATIONS = {2, 7, 8};

// A range of memory, and the access (PF_ flags) that its segment must grant.
struct Range {
  uintptr_t begin;
  size_t size;
  ElfW(Word) access;
};

int Holds(dl_phdr_info* object, size_t /*size*/, void* argument) {
  const Range& range = *static_cast<const Range*>(argument);
  for (size_t i = 0; i < object->dlpi_phnum; ++i) {
    const ElfW(Phdr)& segment = object->dlpi_phdr[i];
    const uintptr_t offset = range.begin - (object->dlpi_addr + segment.p_vaddr);
    if (segment.p_type == PT_LOAD && (segment.p_flags & range.access) == range.access &&
        offset < segment.p_memsz && range.size <= segment.p_memsz - offset) {
      return 1;
    }
  }
  return 0;
}

bool IsLoaded(Range range) { return dl_iterate_phdr(&Holds, &range) != 0; }

// A linker label, which has neither type nor size, may share the address of an object.
bool IsObject(void* symbol) {
  Dl_info info = {};
  void* found = nullptr;
  if (dladdr1(symbol, &info, &found, RTLD_DL_SYMENT) == 0 || found == nullptr) {
    return false;
  }
  const auto* entry = static_cast<const ElfW(Sym)*>(found);
  const auto type = ELF64_ST_TYPE(entry->st_info);
  return type == STT_OBJECT ? entry->st_size >= sizeof(void*)
                            : type == STT_NOTYPE && entry->st_size == 0;
}

using Word [[gnu::may_alias]] = uintptr_t;

// Reads a word of a loaded segment. It may belong to any object: the address sanitizer must not
// check it.
[[gnu::no_sanitize_address]] uintptr_t WordAt(uintptr_t address) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the address was read as a number, and tested
  return *reinterpret_cast<const volatile Word*>(address);
}

bool IsReadable(uintptr_t address, size_t words) {
  return address % alignof(Word) == 0 && IsLoaded({address, words * sizeof(Word), PF_R});
}

}  // namespace

ITraceSink* SinkAtSymbol(void* symbol) {
  const auto address = reinterpret_cast<uintptr_t>(symbol);
  if (!IsObject(symbol) || !IsReadable(address, 1)) {
    return nullptr;
  }
  const uintptr_t table = WordAt(address);
  if (!IsReadable(table, OPERATIONS)) {
    return nullptr;
  }
  for (const size_t position : CALLED_OPERATIONS) {
    if (!IsLoaded({WordAt(table + position * sizeof(Word)), 1, PF_X})) {
      return nullptr;
    }
  }
  return static_cast<ITraceSink*>(symbol);
}
