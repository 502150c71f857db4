#pragma once

#include <sys/stat.h>

#include "tests/support/system_calls.h"

// What a fault forgets to flush.
enum class Forgotten { FILES, DIRECTORIES };

// While it lives, flushes of these succeed and are not made, in children too: a fault that is
// planted to see that a test of power losses finds it.
inline ScopedAnswer ForgetFlush(Forgotten forgotten) {
  return calls::fsync.Answer([forgotten](int descriptor) {
    struct stat status = {};
    fstat(descriptor, &status);
    const bool isForgotten = S_ISDIR(status.st_mode) == (forgotten == Forgotten::DIRECTORIES);
    return isForgotten ? 0 : calls::fsync.Real(descriptor);
  });
}
