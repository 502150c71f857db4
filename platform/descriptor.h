#pragma once

#include <unistd.h>

// Owns a file descriptor and closes it at the end of its life; below 0 it owns none.
class CDescriptor {
 public:
  explicit CDescriptor(int descriptor) noexcept : m_nDescriptor(descriptor) {}
  ~CDescriptor() {
    if (m_nDescriptor >= 0) {
      close(m_nDescriptor);
    }
  }
  CDescriptor(const CDescriptor&) = delete;
  CDescriptor& operator=(const CDescriptor&) = delete;

  int Get() const noexcept { return m_nDescriptor; }

 private:
  const int m_nDescriptor;
};
