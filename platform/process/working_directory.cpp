#include "platform/process/working_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace {

std::mutex g_oTurn;

}  // namespace

bool CWorkingDirectory::Enter(const char* path) {
  if (path == nullptr || *path == '\0') {
    return true;
  }
  std::unique_lock turn(g_oTurn);
  auto old = std::make_unique<CDescriptor>(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (old->Get() < 0 || chdir(path) != 0) {
    return false;
  }
  m_oTurn = std::move(turn);
  m_pOld = std::move(old);
  return true;
}

bool CWorkingDirectory::Leave() {
  const std::unique_lock turn = std::move(m_oTurn);
  const std::unique_ptr<CDescriptor> old = std::move(m_pOld);
  return !old || fchdir(old->Get()) == 0;
}
