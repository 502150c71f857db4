#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

// For the life of the object, file permissions apply to the calling thread even if it runs as root.
class DroppedCapabilities {
 public:
  DroppedCapabilities() {
    syscall(SYS_capget, &m_oHeader, m_oSaved);
    __user_cap_data_struct reduced[2] = {m_oSaved[0], m_oSaved[1]};
    reduced[0].effective &=
        ~((1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH) | (1U << CAP_FOWNER));
    syscall(SYS_capset, &m_oHeader, reduced);
  }
  ~DroppedCapabilities() { syscall(SYS_capset, &m_oHeader, m_oSaved); }
  DroppedCapabilities(const DroppedCapabilities&) = delete;
  DroppedCapabilities& operator=(const DroppedCapabilities&) = delete;

 private:
  __user_cap_header_struct m_oHeader = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct m_oSaved[2] = {};
};
