#pragma once

#include <sys/resource.h>

// For the life of the object, new descriptors of this process are below `limit`.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t limit) {
    getrlimit(RLIMIT_NOFILE, &m_oSaved);
    const rlimit lowered = {limit, m_oSaved.rlim_max};
    setrlimit(RLIMIT_NOFILE, &lowered);
  }
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &m_oSaved); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  rlimit m_oSaved = {};
};
