#pragma once

#include <iosfwd>
#include <optional>
#include <string>

// The commands. A key is a path as CKeyPath takes it. They throw CFailure, and std::bad_alloc.

// Prints the values of a key, and its subkeys by their paths; with `recursive` the whole subtree,
// key by key. With the name of a value only that, wherever it is found.
void QueryKey(const std::string& key, const std::optional<std::string>& valueName, bool recursive,
              std::ostream& output);

// Creates a key if it is missing.
void AddKey(const std::string& key);
// Stores a value, replacing one of that name, and creates its key if it is missing.
void AddValue(const std::string& key, const std::string& valueName, const std::string& typeName,
              const std::string& data);

// Deletes a key with everything below it; root keys stay.
void DeleteKey(const std::string& key);
void DeleteValue(const std::string& key, const std::string& valueName);

// Writes the registry, or a key with everything below it and with the headers of the keys above it,
// in the format that ImportFile() reads. "-" stands for standard output.
void ExportKey(const std::optional<std::string>& key, const std::string& file);

// Adds the keys and values of a file in the registry's format to the registry; values of the same
// name are replaced. All or nothing. "-" stands for standard input.
void ImportFile(const std::string& file);

// Prints the path that an entry of the pointer key holds, or stores another one in it.
void ShowPointer(const std::string& name, std::ostream& output);
void SetPointer(const std::string& name, const std::string& key);
