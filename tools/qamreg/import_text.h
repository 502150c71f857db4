#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/qamreg/registry_edit.h"

// The keys of a text in the registry's format, each with its values, outer keys first. Stricter
// than the reading of the registry files: a line that those would ignore, split or bend is a
// CFailure with the number of the line.
std::vector<KeyContent> ParseImport(std::string_view text);
