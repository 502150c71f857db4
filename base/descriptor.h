#pragma once

#include <pthread.h>
#include <unistd.h>

#include <utility>

// Owns a file descriptor and closes it on destruction; a negative one means none.
class CDescriptor {
 public:
  explicit CDescriptor(int descriptor) noexcept : m_nDescriptor(descriptor) {}
  ~CDescriptor() {
    if (IsOpen()) {
      // close() is a cancellation point, and unwinding out of a destructor ends the process.
      int state = 0;
      pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
      close(m_nDescriptor);
      pthread_setcancelstate(state, nullptr);
    }
  }
  CDescriptor(const CDescriptor&) = delete;
  CDescriptor& operator=(const CDescriptor&) = delete;

  bool IsOpen() const noexcept { return m_nDescriptor >= 0; }
  int Get() const noexcept { return m_nDescriptor; }

  // Closes the descriptor now. False, with errno, when the system reports an error: written data
  // may be lost.
  bool Close() { return close(std::exchange(m_nDescriptor, -1)) == 0; }

 private:
  int m_nDescriptor;
};
