#pragma once

#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <string>

class CIExtensionModule;
class SipJson;

// Traces the current command of the request at `level`, in one call: its header fields and,
// depending on its kind, its data; of a structure, the first MiB of its JSON. The line begins with
// the module's name and `tag`. While lines of that level are not written, nothing is read or built.
// Throws what the sink throws. When memory is exhausted while a structure is serialized, the
// process ends rather than leave half a line.
void TraceRecord(CIExtensionModule& module, const char* tag, const SipJson& request,
                 uint32_t level);

// Serializes `value` as JSON, indented by four spaces per level; a number that JSON cannot express
// becomes null. The output is cut after `longest` bytes, even within a character; what would
// follow is never generated.
//
// A deeply nested value takes no more stack than a flat one. Ends the process when memory is
// exhausted.
std::string BuildJsonText(const rapidjson::Value& value, size_t longest) noexcept;
