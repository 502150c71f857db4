#pragma once

#include <functional>

// Counts what happens from Begin() to End() in all threads and names it: callgrind, when the
// program runs under it, writes a profile of that name, and the calls go to standard output,
// separated by tabs: the name, allocations, bytes, locks.
namespace meter {

void Begin();
void End(const char* name);

// End() in two steps, for what goes on in other threads: the first ends what callgrind counts, in
// the calling thread, the second the count of the calls.
void EndOfThread(const char* name);
void EndOfCalls(const char* name);

// Counts one call of the operation, after some that fill its caches.
void Count(const char* name, const std::function<void()>& operation);

}  // namespace meter

// The operations of the services.
void CountPlatformCosts();
void CountModuleCosts();
