#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

// A registry tree as a flat map from path to entry, to compare trees. The components of a path end
// in a newline, which no name in a file can contain.
using RegistryModel = std::map<std::string, std::string>;

// How the model shows a value and a key.
std::string ModelOfValue(uint32_t type, std::string_view bytes);
std::string ModelOfKey();

// The tree of this process. Recurses, so only for trees that are not deep.
RegistryModel ReadTree();

// The tree as a process that starts now would load it. Discards this process's tree, and what of it
// was not saved.
RegistryModel LoadTree();
