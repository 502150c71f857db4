#pragma once

#include <rapidjson/document.h>

#include <cstddef>

// Deep copies of JSON values. The JSON library's own copy keeps constant and in-situ texts as
// pointers into somebody else's memory; these duplicate every text and name. Nesting is limited by
// memory only, not by the stack. Both throw std::bad_alloc for very deep values only.

// An upper bound of the bytes that CopyJson() takes from the target's allocator.
size_t MeasureJsonCopy(const rapidjson::Value& source);

// Stores a copy of `source` in `target`, whose document owns `allocator`.
void CopyJson(const rapidjson::Value& source, rapidjson::Value& target,
              rapidjson::Document::AllocatorType& allocator);
