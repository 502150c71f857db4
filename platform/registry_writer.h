#pragma once

#include <string>

class CRegistryNode;

// The node as a registry text (see registry_parser.h), values before subkeys, each node closed by
// an empty line. Deleted keys are left out. A key that another thread changes meanwhile is written
// as before or after the change. Throws std::bad_alloc.
std::string WriteRegistryText(CRegistryNode& node);
