#pragma once

#include <cstddef>
#include <functional>
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
// text ends a node. A line longer than REGISTRY_LINE_LENGTH is read as several, each seen up to its
// first NUL; lines of any other form are ignored. Nesting is limited by memory only.
//
// Returns true when the text held at least one key, value, or integer line. Throws std::bad_alloc
// and then stores nothing.
bool ParseRegistryText(std::string_view text, CRegistryNode& node);

// Takes the next piece of a text; it is valid during the call.
using RegistryTextSink = std::function<void(std::string_view piece)>;

// Hands out the node as such a text, values before subkeys, each node closed by an empty line.
// Deleted keys are left out. No key is locked while `sink` runs, and a key may be written in
// several pieces: an entry that another thread changes meanwhile is written as before or after the
// change. Throws std::bad_alloc, and what `sink` throws.
//
// What is written can be read back: a string is cut at its first line end, strings and bytes where
// the line would exceed REGISTRY_LINE_LENGTH. An entry is left out when its name could not be read
// back: it holds a line end, is too long, or makes the line look like the header of a key.
void WriteRegistryText(CRegistryNode& node, const RegistryTextSink& sink);
// As above, in one piece.
std::string WriteRegistryText(CRegistryNode& node);
