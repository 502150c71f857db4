#pragma once

#include <string>

// The content of a registry file with an installed collector: the values of its setup key, and the
// pointer to the key above it.
inline std::string InstalledRegistry(const std::string& setup,
                                     const std::string& pointer = "Talvor=s=SOFTWARE\\Talvor\n") {
  return "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n[Talvor]\n[Setup]\n" + setup +
         "\n\n\n[SYSTEM]\n[CurrentControlSet]\n[Control]\n[UUID]\n"
         "[5B2E9A40-7C13-4F8D-9A61-2D7E0C4B8F13]\n" +
         pointer + "\n\n\n\n\n\n\n";
}

// The values of the setup key of a collector that is installed in `fileRoot` and leaves its
// archives in `dataRoot`.
inline std::string SetupValues(const std::string& fileRoot, const std::string& dataRoot) {
  return "DataRoot=s=" + dataRoot + "\nFileRoot=s=" + fileRoot + "\n";
}
