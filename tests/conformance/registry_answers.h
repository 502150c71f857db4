#pragma once

#include <functional>
#include <string>

#include "platform/registry/registry.h"

// Questions to the registry. Each begins with an empty tree, and with an object that has the new
// key "Key" below HKEY_CURRENT_USER open.

using RegistrySteps = std::function<std::string(CRegistry& key)>;

std::function<std::string()> AskRegistry(RegistrySteps steps);

// As AskRegistry(), in two lives of the process: what the first has made is saved, and loaded again
// before the answer is asked for.
std::function<std::string()> AskAfterRestart(std::function<void(CRegistry& key)> make,
                                             RegistrySteps steps);

// Of operations on values: "done", "not found", "too small" or "refused".
std::string ResultWord(int32_t result);

// "found" or "not found".
std::string OpenWord(const std::string& path, const HKEY& root);

// "created" or "refused".
std::string CreateWord(CRegistry& registry, const HKEY& parent, const char* path);

// "stored" or "refused", of the form that takes length and type.
std::string Store(CRegistry& key, const char* name, const std::string& bytes, uint32_t type);

// The text of a value in quotes, or a word.
std::string TextOf(CRegistry& key, const char* name);

// As in "type 1, 5 bytes", or "not found".
std::string SizeOf(CRegistry& key, const char* name);

// The bytes of a value in hexadecimal, or "not found".
std::string BytesOf(CRegistry& key, const char* name);

// The names of the subkeys, or values, in quotes, as in `"a", "b"`; or "none".
std::string KeysOf(CRegistry& key);
std::string ValuesOf(CRegistry& key);
