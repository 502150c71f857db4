#pragma once

#include <string>

// The pointer key, below HKEY_LOCAL_MACHINE: each installed component has a value there that names
// the component's root key.
constexpr char REGISTRY_POINTER_KEY[] =
    "SYSTEM\\CurrentControlSet\\Control\\UUID\\5B2E9A40-7C13-4F8D-9A61-2D7E0C4B8F13";

// Reads the text value `name` of the pointer key. False, and `text` untouched, when there is none.
// Any thread may call.
bool ReadRegistryPointer(std::string& text, const char* name);
