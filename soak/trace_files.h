#pragma once

#include <string>

#include "soak/draw.h"

// The trace configuration of the machine, which a hostile host changes while the module reads it.
// The files belong to the soak alone.
//
// Thread safety: Change() may be called from any thread.
class CTraceFiles {
 public:
  // Writes the first configuration. `isFull`: every version of it asks for every line, and the file
  // is whole at any time; else it holds anything or is not there at all.
  explicit CTraceFiles(bool isFull);
  // Removes the configuration.
  ~CTraceFiles();
  CTraceFiles(const CTraceFiles&) = delete;
  CTraceFiles& operator=(const CTraceFiles&) = delete;

  bool IsFull() const { return m_bFull; }

  void Change(CDraw& draw);

 private:
  void ReplaceGlobalFile(const std::string& text);

  const bool m_bFull;
};
