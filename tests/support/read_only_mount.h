#pragma once

#include <sys/mount.h>

#include <string>
#include <utility>

// Makes a directory read-only for the life of the object. For tests in the sandbox; some machines
// let nobody mount.
class ReadOnlyMount {
 public:
  explicit ReadOnlyMount(std::string path)
      : m_strPath(std::move(path)),
        m_bMounted(mount(m_strPath.c_str(), m_strPath.c_str(), nullptr, MS_BIND, nullptr) == 0) {
    if (m_bMounted) {
      mount(nullptr, m_strPath.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr);
    }
  }
  ~ReadOnlyMount() {
    if (m_bMounted) {
      umount2(m_strPath.c_str(), MNT_DETACH);
    }
  }
  ReadOnlyMount(const ReadOnlyMount&) = delete;
  ReadOnlyMount& operator=(const ReadOnlyMount&) = delete;

  bool IsMounted() const { return m_bMounted; }

 private:
  const std::string m_strPath;
  const bool m_bMounted;
};
