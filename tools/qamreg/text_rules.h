#pragma once

#include <string_view>

#include "platform/registry/registry_text.h"
#include "tools/qamreg/key_path.h"
#include "tools/qamreg/value_data.h"

// What the text files of the registry cannot hold would come back damaged. These functions throw
// CFailure with the reason for such data.

void CheckKeyPath(const CKeyPath& path);
void CheckValue(std::string_view name, const ValueData& value);
