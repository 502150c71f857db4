#pragma once

#include <cstdint>

// The number that all descriptors of the process are expected to be below: the process's limit, or
// 1024 when that is below 256 or unknown.
uint32_t GetDescriptorLimit();

// Closes all descriptors from `first` up to `limit`, exclusive, at a cost that does not depend on
// the limit, except on old kernels without a proc file system. Safe between fork() or vfork() and
// exec().
void CloseDescriptors(uint32_t first, uint32_t limit) noexcept;
