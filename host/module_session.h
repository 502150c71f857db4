#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "host/answer_queue.h"
#include "host/file_transfer.h"
#include "host/host_answer.h"
#include "host/host_request.h"
#include "host/host_switch.h"
#include "host/module_instance.h"
#include "host/module_library.h"
#include "host/signal_watch.h"

struct SessionSettings {
  std::string module;                 // the file
  std::string bmcDirectory;           // stands for the BMC; empty: none
  std::optional<uint32_t> cabinet;    // of the server
  uint32_t agentType = 0;             // for operation 27 of the switch
  std::optional<uint32_t> timeLimit;  // seconds that a final answer may take
};

// A module as an agent uses it: loaded, created and started, sent one request at a time, and
// stopped, deleted and unloaded at the end. Meanwhile it handles the signals that would end the
// program.
//
// Used by one thread, the first of the program.
class CModuleSession {
 public:
  struct Listener {
    // Gets each answer, pending ones too.
    std::function<void(const HostAnswer&)> onAnswer;
    // Called every second during the wait for a final answer. May be empty.
    std::function<void(std::chrono::seconds waited)> onWaiting;
  };

  enum class Outcome {
    ANSWERED,     // the final answer came
    INTERRUPTED,  // a signal asks to end
    TIMED_OUT     // no final answer within the time limit
  };

  // Loads the module and creates its instance. Throws CHostError.
  CModuleSession(const SessionSettings& settings, Listener listener);

  const CModuleLibrary& GetLibrary() const { return m_oLibrary; }
  CFileTransfer& GetFileTransfer() { return m_oFileTransfer; }
  // The signal that asked to end; 0: none.
  int GetSignal() { return m_oSignals.Take(); }

  // Starts the module. False when it reports that it is not started.
  bool Start();

  // Sends a request to the module and waits for the final answer.
  Outcome Ask(const HostRequest& request);

  // Stops the module; with `isShutdown` after announcing the shutdown of the switch. The answers
  // that this causes go to the listener.
  void Stop(bool isShutdown = false);
  bool Delete() { return m_oModule.Delete(); }
  bool Unload() { return m_oLibrary.Unload(); }

 private:
  Outcome WaitForAnswer();
  bool TakeAnswer();
  void PollUntil(std::chrono::steady_clock::time_point time);

  const SessionSettings m_oSettings;
  const Listener m_oListener;
  CSignalWatch m_oSignals;
  CFileTransfer m_oFileTransfer;
  CAnswerQueue m_oAnswers;
  CHostSwitch m_oSwitch;
  CModuleLibrary m_oLibrary;
  CModuleInstance m_oModule;
  std::string m_strPendingRequest;  // the name of the one that was queued last
};
