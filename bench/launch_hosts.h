#pragma once

#include <sys/mman.h>
#include <sys/resource.h>

#include "bench/files.h"

// What a host may look like in which a child is launched; for the life of the object.

enum class Host { SMALL, BIG, MANY_DESCRIPTORS };

// Memory that has been written to, in small pages as a host's memory is.
class TouchedMemory {
 public:
  explicit TouchedMemory(size_t size) : m_nSize(size) {
    if (size == 0) {
      return;
    }
    m_pMemory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    Require(m_pMemory != MAP_FAILED, "mmap");
    madvise(m_pMemory, size, MADV_NOHUGEPAGE);
    for (size_t offset = 0; offset < size; offset += 4096) {
      static_cast<char*>(m_pMemory)[offset] = 1;
    }
  }
  ~TouchedMemory() {
    if (m_nSize > 0) {
      munmap(m_pMemory, m_nSize);
    }
  }
  TouchedMemory(const TouchedMemory&) = delete;
  TouchedMemory& operator=(const TouchedMemory&) = delete;

 private:
  const size_t m_nSize;
  void* m_pMemory = nullptr;
};

class HostState {
 public:
  explicit HostState(Host host) : m_oMemory(host == Host::BIG ? size_t{1} << 30 : 0) {
    getrlimit(RLIMIT_NOFILE, &m_oLimit);
    if (host == Host::MANY_DESCRIPTORS) {
      // What lies above the hard limit needs a privilege that containers lack.
      const rlimit most = {MANY, MANY};
      const rlimit allowed = {m_oLimit.rlim_max, m_oLimit.rlim_max};
      Require(setrlimit(RLIMIT_NOFILE, &most) == 0 || setrlimit(RLIMIT_NOFILE, &allowed) == 0,
              "setrlimit");
    }
  }
  ~HostState() { setrlimit(RLIMIT_NOFILE, &m_oLimit); }
  // The number of descriptors that a process may have here.
  static double GetDescriptorLimit() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<double>(limit.rlim_cur);
  }

  HostState(const HostState&) = delete;
  HostState& operator=(const HostState&) = delete;

 private:
  static constexpr rlim_t MANY = 1'048'576;

  const TouchedMemory m_oMemory;
  rlimit m_oLimit = {};
};
