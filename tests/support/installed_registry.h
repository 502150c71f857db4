#pragma once

#include <string>

// The text of a registry file in which a collector is installed: the values of its setup key, and
// the one that names the key above that.
inline std::string InstalledRegistry(const std::string& setup,
                                     const std::string& pointer = "Talvor=s=SOFTWARE\\Talvor\n") {
  return "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n[Talvor]\n[Setup]\n" + setup +
         "\n\n\n[SYSTEM]\n[CurrentControlSet]\n[Control]\n[UUID]\n"
         "[5B2E9A40-7C13-4F8D-9A61-2D7E0C4B8F13]\n" +
         pointer + "\n\n\n\n\n\n\n";
}

// The values of the setup key of a collector that lies in `fileRoot` and leaves archives in
// `dataRoot`.
inline std::string SetupValues(const std::string& fileRoot, const std::string& dataRoot) {
  return "DataRoot=s=" + dataRoot + "\nFileRoot=s=" + fileRoot + "\n";
}
