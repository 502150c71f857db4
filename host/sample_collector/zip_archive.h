#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "base/descriptor.h"

struct archive;

// A zip file that appears whole or not at all: it is written under a temporary name in the same
// directory, and Finish() renames it. An object that has not finished removes the temporary file in
// its destructor. Only its owner may read the archive.
//
// Two writers of one archive exclude each other. What a killed writer left is overwritten.
//
// The operations throw std::runtime_error with the reason.
class CZipArchive {
 public:
  // Creates the temporary file, and its directory if only the last component is missing.
  explicit CZipArchive(const std::string& path);
  ~CZipArchive();
  CZipArchive(const CZipArchive&) = delete;
  CZipArchive& operator=(const CZipArchive&) = delete;

  void Add(const std::string& name, std::string_view content);

  // Completes the archive, flushes it to the disk and renames it, replacing a previous one.
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
