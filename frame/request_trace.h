#pragma once

#include <cstdint>

class CIExtensionModule;
class SipJson;

// Writes one trace line at `level` that shows the current command of the request: its header fields
// and, by kind, its data; of a structure the first MiB of its text. The line is labelled with the
// module's name followed by `tag`. The request is not changed. Nothing is read or built when no
// line of that level is written. What the sink throws passes through; memory that is exhausted
// while the text of a structure is built ends the process rather than leaving half a line.
void TraceRecord(CIExtensionModule& module, const char* tag, const SipJson& request,
                 uint32_t level);
