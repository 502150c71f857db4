#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "base/descriptor.h"

struct archive;

// A zip file that comes to its place whole or not at all: it is written under a temporary name in
// the same directory, and Finish() moves it. At the end of an object that has not finished, the
// temporary file is removed. Only its owner may read the archive.
//
// Two writers of one archive exclude each other. What a killed writer left behind is written over.
//
// The operations throw std::runtime_error with the reason.
class CZipArchive {
 public:
  // Makes the temporary file, and its directory when only that is missing.
  explicit CZipArchive(const std::string& path);
  ~CZipArchive();
  CZipArchive(const CZipArchive&) = delete;
  CZipArchive& operator=(const CZipArchive&) = delete;

  void Add(const std::string& name, std::string_view content);

  // Completes the archive, flushes it to the disk and moves it to its place, over a former one.
  void Finish();

 private:
  struct ArchiveCloser {
    void operator()(archive* writer) const;
  };

  void ClaimTemporaryFile();
  [[noreturn]] void ThrowWriterError();

  std::string m_strPath;
  std::string m_strTemporaryPath;
  CDescriptor m_oFile;  // locked
  bool m_bRemove = false;
  std::unique_ptr<archive, ArchiveCloser> m_pWriter;
};
