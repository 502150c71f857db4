#pragma once

#include <cstdint>
#include <string>

#include "frame/entry_points.h"
#include "frame/extension_module_interface.h"

// The library of an extension module, loaded for the life of the object. Its entry points are valid
// until then.
class CModuleLibrary {
 public:
  // Loads the file and looks up its entry points. Throws CHostError.
  explicit CModuleLibrary(const std::string& path);
  ~CModuleLibrary();
  CModuleLibrary(const CModuleLibrary&) = delete;
  CModuleLibrary& operator=(const CModuleLibrary&) = delete;

  // The absolute path of the file.
  const std::string& GetPath() const { return m_strPath; }

  // Unloads the library now. False when it stays in the process.
  bool Unload();

  // The entry points; null after Unload().
  decltype(&EM_Create) Create = nullptr;
  decltype(&EM_Delete) Delete = nullptr;
  decltype(&EM_GetModuleName) GetModuleName = nullptr;
  decltype(&EM_SetupAction) SetupAction = nullptr;

 private:
  template <typename Function>
  void Find(Function*& function, const char* name);

  std::string m_strPath;
  void* m_pLibrary = nullptr;  // null: not loaded
};
