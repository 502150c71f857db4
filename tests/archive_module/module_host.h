#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "archive_module/names.h"
#include "frame/extension_module_interface.h"
#include "frame/sip_json.h"
#include "frame/switch_interface.h"

// Commands for MakeRequest() and Send().
constexpr char QUERY[] = R"({"OC":13312})";
constexpr char CREATE[] = R"({"OC":13313,"MI":"0x00010002"})";
constexpr char TRANSFER[] = R"({"OC":13314})";
// A transfer whose BMC name is given as bytes.
constexpr char NAMED_TRANSFER[] = R"({"OC":13314,"TO":60,"DA":{"RAW":[98,109,99,46,122,105,112]}})";

// For InstallCollector(): does what a collector should.
constexpr char GOOD_COLLECTOR[] = "echo data > \"$archive\"";
// Runs until it is killed, or for a second.
constexpr char LONG_RUN[] = "echo $$ > \"$D/runs\"; exec sleep 60";
constexpr char SHORT_RUN[] = "touch \"$D/runs\"; sleep 1; echo data > \"$archive\"";

// How long a job may go on when the module ends, and what a loaded machine may add to that.
constexpr std::chrono::milliseconds STOP_GRACE(2100);
constexpr std::chrono::seconds LOAD_DELAY(20);

// The format of the line that announces a kill.
constexpr char TERMINATE_FORMAT[] =
    "\nEM_TALVOR (Stop)    : -> Talvor archive creation in progress - terminate process (#%d) and wait for exit...";

// For SetupAction().
constexpr uint32_t CLEANUP = 4;

// The host's switch. It records what the module hands to it.
class TestSwitch : public CSwitchBase {
 public:
  uintptr_t ForwardRequest(CIExtensionModule* module, SipJson* request) override;
  uintptr_t ReturnRequest(CIExtensionModule* module, SipJson* request, uint32_t messageIdHigh,
                          uint32_t messageIdLow) override;

  // Plays HTI: called with each request for it, on the module's worker. May be empty.
  std::function<void(SipJson&)> onHtiRequest;
  // Called with each final answer, on the module's worker. May be empty.
  std::function<void(SipJson&)> onAnswer;
  // Called when a final answer is recorded, on the module's worker. May be empty.
  std::function<void()> onAnswered;

  // The requests for HTI and the final answers so far, as JSON.
  std::vector<std::string> HtiRequests();
  std::vector<std::string> Answers();
  // The status of the final answer at `index`. Waits up to ten seconds for it; 999 when none came.
  uint32_t StatusOf(size_t index);
  // Forgets them all.
  void Forget();

 private:
  std::mutex m_oLock;
  std::vector<std::string> m_oHtiRequests;
  std::vector<std::string> m_oAnswers;
  std::vector<uint32_t> m_oStatuses;
};

// A host that loads the built module and drives it through its entry points and its operations. The
// collector is a shell script of the test. Everything lies in a temporary directory except the
// registry, which the sandbox provides.
class ModuleHost : public testing::Test {
 protected:
  ModuleHost();
  ~ModuleHost() override;

  // Points the registry to the directories of the test and makes the script the collector. With
  // EM_TALVOR_GUARD in the environment, which names the guard's directory, the guard stands in the
  // collector's place and runs the script. In the script "$D" is the directory and "$archive" the
  // archive.
  void InstallCollector(const std::string& script);
  void WriteRegistry(const std::string& fileRoot, const std::string& dataRoot);
  // Takes the lines of the setup key, and of the value that names its parent.
  void WriteRegistryText(const std::string& setup, const std::string& pointer);

  // Waits for a collector whose script has made the file "$D/runs".
  bool WaitForCollector() const;

  void LoadModule();
  void UnloadModule();  // deletes the instance first, if there is one
  bool IsLoaded() const;

  // Loads the module if need be, creates the instance and starts it.
  uint32_t CreateAndStart();
  // Like a restarted host: loads the library again too.
  uint32_t StartAfresh();
  // The same, and then starts a job and waits until its collector runs, which must be LONG_RUN or
  // SHORT_RUN.
  void StartWithRunningCollector();
  uint32_t DeleteModule();

  // Sends one command. Returns the module's result and the status that it left.
  std::pair<uint32_t, uint32_t> Send(const std::string& command);
  // Sends a command that is answered twice. Returns the final status, or 999 when there is none
  // after ten seconds.
  uint32_t Run(const std::string& command);

  // Of this process. What a sanitizer starts or opens with the first thread is always included.
  static size_t CountThreads();
  static ptrdiff_t CountDescriptors();
  // Waits for the system to forget threads that have ended. False after ten seconds.
  static bool HasOnlyThreads(size_t count);
  // Also true for a child that has ended and was not reaped.
  static bool HasChildren();

  // A request with that one command, a JSON object.
  static SipJson MakeRequest(const std::string& command);
  // The status of the current command, or 999.
  static uint32_t StatusOf(const SipJson& request);

  uint32_t (*Create)(CIExtensionModule**, void*) = nullptr;
  uint32_t (*Delete)() = nullptr;
  const char* (*GetModuleName)() = nullptr;
  uint32_t (*SetupAction)(uint32_t) = nullptr;

  TestSwitch m_oSwitch;
  CIExtensionModule* m_pModule = nullptr;
  std::string m_strDirectory;  // ends in "/"
  std::string m_strArchive;    // where the collector is to leave it

  void* m_pLibrary = nullptr;
};
