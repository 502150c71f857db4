#pragma once

#include <string>

// The directory of the registry, at its real path: tests run where nobody else sees it.
constexpr char DIRECTORY[] = "/etc/qamrel";
constexpr char CURRENT[] = "/etc/qamrel/registry";
constexpr char BACKUP[] = "/etc/qamrel/registry.old";
constexpr char TEMPORARY[] = "/etc/qamrel/registry.new";
constexpr char DEFAULT[] = "/etc/qamrel/registry.default";

// Makes the directory, and empties it when it is there.
void ResetRegistryDirectory();

// True for a dangling link too.
bool Exists(const std::string& path);

// The text of the file, or "<missing>". Follows links.
std::string ReadFile(const std::string& path);

void WriteFile(const std::string& path, const std::string& text);
