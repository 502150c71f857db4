#include "platform/working_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

bool CWorkingDirectory::Enter(const char* path) {
  if (path == nullptr || *path == '\0') {
    return true;
  }
  auto old = std::make_unique<CDescriptor>(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (old->Get() < 0 || chdir(path) != 0) {
    return false;
  }
  m_pOld = std::move(old);
  return true;
}

bool CWorkingDirectory::Leave() {
  const std::unique_ptr<CDescriptor> old = std::move(m_pOld);
  return !old || fchdir(old->Get()) == 0;
}
