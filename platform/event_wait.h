#pragma once

#include <cstdint>

struct EventRecord;

// The wait of CEvent, on the record of an open handle; see CEvent::Wait(). The record may be
// destroyed by another thread as soon as the wait is over.
uint32_t WaitForEvent(EventRecord& record, uint32_t milliseconds, bool trace);
