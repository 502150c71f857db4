#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

// A registry tree written flat, to compare trees: what lies where. The parts of a path end in a
// line end, which no name in a file can hold.
using RegistryModel = std::map<std::string, std::string>;

// How the model shows a value and a key.
std::string ModelOfValue(uint32_t type, std::string_view bytes);
std::string ModelOfKey();

// The tree of this process as it is. For trees that are not deep.
RegistryModel ReadTree();

// The tree as a process that starts now loads it. This process's tree, and what was not saved of
// it, is given up.
RegistryModel LoadTree();
