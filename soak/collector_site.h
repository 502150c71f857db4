#pragma once

#include <string>

// The installation of the soak's collector: a directory of its own, named in the registry, with a
// script that succeeds, fails, is killed or hangs at random.
class CCollectorSite {
 public:
  // Creates the directory and writes the registry; both belong to the soak alone.
  CCollectorSite();
  // Removes both.
  ~CCollectorSite();
  CCollectorSite(const CCollectorSite&) = delete;
  CCollectorSite& operator=(const CCollectorSite&) = delete;

  const std::string& GetDirectory() const { return m_strDirectory; }

  // Kills the collector of this process if it hangs. Returns whether it did.
  bool KillHangingCollector() const;

  // Briefly runs a collector that this process's module did not start.
  void RunForeignCollector() const;

  // Removes what collectors have left.
  void Clear() const;

  // Whether the registry is as it was written.
  bool IsRegistryUntouched() const;

 private:
  std::string m_strDirectory;  // ends in "/"
  std::string m_strRegistry;
};
