#pragma once

#include <atomic>

// Keeps a flag set for the life of the object.
class CFlagGuard {
 public:
  explicit CFlagGuard(std::atomic<bool>& flag) : m_bFlag(flag) { m_bFlag = true; }
  ~CFlagGuard() { m_bFlag = false; }
  CFlagGuard(const CFlagGuard&) = delete;
  CFlagGuard& operator=(const CFlagGuard&) = delete;

 private:
  std::atomic<bool>& m_bFlag;
};
