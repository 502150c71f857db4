#pragma once

#include <string>
#include <vector>

// What a look at one part of the machine found.
struct Finding {
  enum class Verdict {
    RIGHT,
    WRONG,
    UNKNOWN  // it depends on something that is wrong
  };
  Verdict verdict;
  std::string subject;
  std::string text;  // a sentence; what to do when it is wrong
};

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

  const std::vector<Finding>& GetFindings() const { return m_oFindings; }

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

  bool Add(bool isRight, const std::string& subject, const std::string& text);
  void AddUnknown(const std::string& subject, const std::string& text);

  std::vector<Finding> m_oFindings;
  std::string m_strSetupKey;
  std::string m_strFileRoot;       // ends in "/"; empty: unknown
  std::string m_strDataDirectory;  // ends in "/"; empty: unknown
};

// Why the collector is not available to the module, as a sentence that says what to do.
std::string ExplainUnavailability();
