#pragma once

#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>

#include "bench/files.h"

// Makes this process resemble a host that launches a child, for the life of the object.

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

// The number of descriptors that a process may have.
class DescriptorLimit {
 public:
  // Raising it above the hard limit needs a privilege that containers lack; it stays there then.
  explicit DescriptorLimit(rlim_t count) {
    getrlimit(RLIMIT_NOFILE, &m_oBefore);
    const rlimit asked = {count, std::max(count, m_oBefore.rlim_max)};
    const rlimit allowed = {m_oBefore.rlim_max, m_oBefore.rlim_max};
    Require(setrlimit(RLIMIT_NOFILE, &asked) == 0 || setrlimit(RLIMIT_NOFILE, &allowed) == 0,
            "setrlimit");
  }
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &m_oBefore); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

  static double Get() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<double>(limit.rlim_cur);
  }

 private:
  rlimit m_oBefore = {};
};

class HostState {
 public:
  explicit HostState(Host host)
      : m_oMemory(host == Host::BIG ? size_t{1} << 30 : 0),
        m_oLimit(host == Host::MANY_DESCRIPTORS ? MANY : USUAL) {}

 private:
  static constexpr rlim_t USUAL = 1024;
  static constexpr rlim_t MANY = 1'048'576;

  const TouchedMemory m_oMemory;
  const DescriptorLimit m_oLimit;
};
