#pragma once

#include <cstddef>
#include <string>

class CRegistryNode;

// The node as a registry text (see registry_parser.h), values before subkeys, each node closed by
// an empty line. Deleted keys are left out. A key that another thread changes meanwhile is written
// as before or after the change. Throws std::bad_alloc.
//
// What is written can be read back: a string ends at its first line end and, as bytes do, where its
// line would become longer than one that is read as one. What has no line of its own that is read
// as such, because its name has a line end, is too long or looks like that of a key, is left out.
//
// Quickest when `expectedSize` is not far below the size of the text.
std::string WriteRegistryText(CRegistryNode& node, size_t expectedSize = 0);
