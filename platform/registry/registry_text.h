#pragma once

#include <cstddef>
#include <string>
#include <string_view>

class CRegistryNode;

// The longest line that is read as one, in bytes without its line end.
constexpr size_t REGISTRY_LINE_LENGTH = 1023;

// Reads a registry text into `node`. Entries of the text replace those of the same name; what they
// replace is killed. Nothing is stored before the whole text has been read.
//
// The text is a node: lines of values,
//
//   name=s=text    name=es=expandable text    name=d=integer    name=b=01 ff
//
// and lines "[name]", each followed by the node of that subkey; an empty line or the end of the
// text ends a node. A longer line than REGISTRY_LINE_LENGTH is read as several, each seen up to its
// first NUL; lines of any other form are ignored. Nesting is limited by memory only.
//
// Returns true when the text held at least one key, value, or integer line. Throws std::bad_alloc
// and then stores nothing.
bool ParseRegistryText(std::string_view text, CRegistryNode& node);

// The node as such a text, values before subkeys, each node closed by an empty line. Deleted keys
// are left out. A key that another thread changes meanwhile is written as before or after the
// change. Throws std::bad_alloc.
//
// What is written can be read back: a string ends at its first line end and, as bytes do, where its
// line would become longer than one that is read as one. What has no line of its own that is read
// as such, because its name has a line end, is too long or looks like that of a key, is left out.
//
// Quickest when `expectedSize` is not far below the size of the text.
std::string WriteRegistryText(CRegistryNode& node, size_t expectedSize = 0);
