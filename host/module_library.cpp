#include "host/module_library.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/host_error.h"

namespace {

std::string FullPath(const std::string& path) {
  std::error_code error;
  const std::filesystem::path full = std::filesystem::absolute(path, error);
  if (error) {
    throw CHostError(EX_OSERR, "The current directory, from which " + path +
                                   " is found, cannot be told (" + error.message() +
                                   "): change to one that is there.");
  }
  return full.lexically_normal();
}

void CheckFile(const std::string& path) {
  if (access(path.c_str(), R_OK) == 0) {
    return;
  }
  const int error = errno;
  if (error == EACCES) {
    throw CHostError(EX_NOPERM, "The module " + path +
                                    " may not be read: run em_host as root, or change the rights "
                                    "of the file.");
  }
  throw CHostError(EX_OSFILE, "The module " + path + " cannot be found (" + strerror(error) +
                                  "): install the package em-talvor, or name the file with "
                                  "--module FILE.");
}

}  // namespace

CModuleLibrary::CModuleLibrary(const std::string& path) : m_strPath(FullPath(path)) {
  CheckFile(m_strPath);
  m_pLibrary = dlopen(m_strPath.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (m_pLibrary == nullptr) {
    throw CHostError(EX_SOFTWARE, std::string("The module cannot be loaded: ") + dlerror() +
                                      ". Name a module that was built for this machine.");
  }
  try {
    Find(Create, "EM_Create");
    Find(Delete, "EM_Delete");
    Find(GetModuleName, "EM_GetModuleName");
    Find(SetupAction, "EM_SetupAction");
  } catch (const CHostError&) {
    Unload();
    throw;
  }
}

CModuleLibrary::~CModuleLibrary() { Unload(); }

bool CModuleLibrary::Unload() {
  if (m_pLibrary != nullptr) {
    dlclose(m_pLibrary);
    m_pLibrary = nullptr;
    Create = nullptr;
    Delete = nullptr;
    GetModuleName = nullptr;
    SetupAction = nullptr;
  }
  void* library = dlopen(m_strPath.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (library != nullptr) {
    dlclose(library);
  }
  return library == nullptr;
}

template <typename Function>
void CModuleLibrary::Find(Function*& function, const char* name) {
  function = reinterpret_cast<Function*>(dlsym(m_pLibrary, name));
  if (function == nullptr) {
    throw CHostError(EX_SOFTWARE, m_strPath + " is no extension module, it does not export " +
                                      name + ": name another file with --module FILE.");
  }
}
