#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/qamreg/registry_edit.h"

// The keys of a text in the registry's format, each with its values, outer keys first. Stricter
// than the registry is with its own files: a line that it would ignore, split or change is a
// CFailure with the line's number.
std::vector<KeyContent> ParseImport(std::string_view text);
