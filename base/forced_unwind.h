#pragma once

#include <cxxabi.h>

// The end of a thread by cancellation or pthread_exit() unwinds its stack like an exception, and
// glibc aborts the process when a `catch (...)` swallows it. So each catch-all follows a handler
// for abi::__forced_unwind that rethrows.
//
// That unwind carries no object: the runtime binds the handler's reference to null, which a
// sanitizer reports. This mark exempts a function with such a handler, and keeps it from being
// inlined, which would lose the exemption.
#define HANDLES_FORCED_UNWIND __attribute__((noinline, no_sanitize("undefined")))
