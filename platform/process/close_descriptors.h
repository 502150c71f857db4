#pragma once

#include <cstdint>

// The number that new descriptors of the process are below: its limit, or 1024 when that is below
// 256 or unknown.
uint32_t GetDescriptorLimit();

// Closes all descriptors from `first` up, also those above the process's limit, which were opened
// before it was lowered. On old kernels without a proc file system those up to `limit`, exclusive,
// one by one; elsewhere the cost does not depend on it. Safe between fork() or vfork() and exec().
void CloseDescriptors(uint32_t first, uint32_t limit) noexcept;
