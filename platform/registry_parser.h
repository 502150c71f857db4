#pragma once

#include <string_view>

class CRegistryNode;

// Reads a registry text into `node`. Entries of the text replace those of the same name; what they
// replace is killed. Nothing is stored before the whole text has been read.
//
// The text is a node: lines of values,
//
//   name=s=text    name=es=expandable text    name=d=integer    name=b=01 ff
//
// and lines "[name]", each followed by the node of that subkey; an empty line or the end of the
// text ends a node. Lines are read in pieces of 1023 bytes at most and seen up to their first NUL;
// lines of any other form are ignored. Nesting is limited by memory only.
//
// Returns true when the text held at least one key, value, or integer line. Throws std::bad_alloc
// and then stores nothing.
bool ParseRegistryText(std::string_view text, CRegistryNode& node);
