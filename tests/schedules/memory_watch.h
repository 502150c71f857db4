#pragma once

#include <cstddef>

// Watches the memory that the threads of a schedule take with operator new: what is freed is kept
// until the end of the run, so that a use of it shows, and what is not freed is counted. Under the
// address sanitizer, which sees more, it does nothing.
namespace MemoryWatch {

// True when `address` lies in memory that was freed in this run.
bool IsFreed(const void* address);

// Ends a run. Returns how many blocks of it were not freed.
size_t End();

// While true, blocks are not watched.
void Ignore(bool ignores);

}  // namespace MemoryWatch
