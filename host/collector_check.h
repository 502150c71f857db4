#pragma once

#include <string>

#include "host/finding.h"

// Walks the chain that leads to an archive, from the registry to the program, as the module does
// when it starts, and then looks at what a creation needs. Each step gives one finding, in that
// order.
class CCollectorCheck {
 public:
  // Steps of the module's start: registry, pointer, Setup key, FileRoot, DataRoot, program.
  void CheckInstallation();
  // What a creation needs: data directory, free space, no other collector. After
  // CheckInstallation().
  void CheckCreation();

  const Findings& GetFindings() const { return m_oFindings; }

 private:
  bool CheckRegistry();
  bool CheckPointer();
  bool CheckSetupKey();
  bool CheckFileRoot();
  void CheckDataRoot();
  void CheckProgram();
  bool CheckDataDirectory();
  void CheckFreeSpace();
  void CheckOtherCollector();

  // True unless the verdict is WRONG.
  bool Add(Finding::Verdict verdict, const std::string& subject, const std::string& text);
  void AddUnknown(const std::string& subject, const std::string& text);

  Findings m_oFindings;
  std::string m_strSetupKey;
  std::string m_strFileRoot;       // ends in "/"; empty: unknown
  std::string m_strDataDirectory;  // ends in "/"; empty: unknown
};

// The directory itself (its path ends in "/"), or its nearest existing ancestor.
std::string NearestDirectory(std::string directory);

// Why the collector is not available to the module, as a sentence that says what to do.
std::string ExplainUnavailability();
