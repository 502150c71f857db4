#include "host/commands.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "archive_module/collector_files.h"
#include "archive_module/names.h"
#include "frame/opcode.h"
#include "frame/status.h"
#include "host/byte_count.h"
#include "host/child_watch.h"
#include "host/collector_check.h"
#include "host/creation_failure.h"
#include "host/host_error.h"
#include "host/module_session.h"
#include "host/output.h"
#include "host/progress_line.h"
#include "host/seconds_text.h"

namespace {

constexpr uint32_t FIRST_MESSAGE_ID = 0x00010001;
constexpr uint32_t HIGHEST_STATUS_CODE = 63;  // as an exit code

std::vector<HostRequest> ReadRequests(const HostOptions& options) {
  std::vector<HostRequest> all;
  for (const std::string& word : options.requests) {
    std::vector<HostRequest> requests =
        MakeRequests(word, {options.cabinet, options.timeLimit},
                     FIRST_MESSAGE_ID + static_cast<uint32_t>(all.size()));
    std::move(requests.begin(), requests.end(), std::back_inserter(all));
  }
  return all;
}

// Checked before minutes are spent on an archive that has nowhere to go.
void CheckBmcDirectory(const HostOptions& options, const std::vector<HostRequest>& requests) {
  if (!options.bmcDirectory.empty()) {
    std::error_code error;
    if (!std::filesystem::is_directory(options.bmcDirectory, error)) {
      const bool isThere = error && error != std::errc::no_such_file_or_directory;
      throw CHostError(EX_CANTCREAT, "There is no directory " + options.bmcDirectory +
                                         " to stand for the BMC" +
                                         (isThere ? " (" + error.message() + ")" : "") +
                                         ": make it, or name another with --bmc DIR.");
    }
  } else if (std::any_of(requests.begin(), requests.end(), [](const HostRequest& request) {
               return OperationCode(request.record) == OC_TRANSFER_ARCHIVE;
             })) {
    throw CHostError(EX_USAGE,
                     "A transfer needs a directory that stands for the BMC: name one with --bmc "
                     "DIR.");
  }
}

int ExitCode(uint32_t worstStatus, int signal) {
  if (worstStatus != 0 || signal == 0) {
    return static_cast<int>(std::min(worstStatus, HIGHEST_STATUS_CODE));
  }
  return SIGNAL_CODE + signal;
}

// What to do about the worst status of a run; empty when its text has said it.
std::string Advice(uint32_t status, bool isAvailable) {
  switch (status) {
    case STATUS_UNHANDLED:
      return "A request is none of this module's: correct its \"OC\".";
    case STATUS_NOT_AVAILABLE:
      return isAvailable ? "There is no archive to transfer: ask create first." : "";
    case STATUS_FAILED:
      return "See what is in the way with \"em_host doctor\", and what happened with --trace 3.";
    case STATUS_EXCEPTION:
      return "See what happened with --trace 3.";
    case STATUS_OTHER_CABINET:
      return "A request names another cabinet in \"CA\": give the server's number with --cabinet.";
    default:
      return "";
  }
}

// False, and the user is told, when deleting or unloading the module failed.
bool LetGo(CModuleSession& session) {
  const bool isDeleted = session.Delete();
  if (!isDeleted) {
    WriteMessage(
        "The module could not be deleted (EM_Delete returned 0): look at its trace with "
        "--trace 3.");
  }
  const bool isUnloaded = session.Unload();
  if (!isUnloaded) {
    WriteMessage(
        "The module is still in the process after it was unloaded: look for threads that it leaves "
        "behind, and for the linker option \"-z nodelete\".");
  }
  return isDeleted && isUnloaded;
}

// One run, from the first request to the exit code.
class Run {
 public:
  Run(const HostOptions& options, const std::vector<HostRequest>& requests)
      : m_oOptions(options),
        m_oRequests(requests),
        m_oSession({options.module, options.bmcDirectory, options.cabinet, options.agentType,
                    options.timeLimit},
                   {[this](const HostAnswer& answer) { TakeAnswer(answer); },
                    [this](std::chrono::seconds waited) { ShowProgress(waited); }}) {}

  int Execute() {
    m_bAvailable = m_oSession.Start();
    if (!m_bAvailable) {
      WriteMessage(ExplainUnavailability());
    }
    const Outcome outcome = AskAll();
    // A signal from the terminal reaches the collector too, whose end may be noticed first.
    const int signal = m_oSession.GetSignal();
    const bool isGone = End(signal);
    if (outcome == Outcome::TIMED_OUT) {
      throw CHostError(EX_TEMPFAIL, "No final answer to \"" + m_strRequest + "\" within " +
                                        SecondsText(*m_oOptions.timeLimit) +
                                        ": allow more with --timeout, or look at the trace with "
                                        "--trace 3.");
    }
    const bool isInterrupted = outcome == Outcome::INTERRUPTED;
    if (const std::string advice = Advice(m_nWorstStatus, m_bAvailable);
        !advice.empty() && !isInterrupted) {
      WriteMessage(advice);
    }
    const int exitCode = ExitCode(m_nWorstStatus, isInterrupted ? signal : 0);
    return exitCode == 0 && !isGone ? EX_SOFTWARE : exitCode;
  }

 private:
  using Outcome = CModuleSession::Outcome;

  Outcome AskAll() {
    Outcome outcome = Outcome::ANSWERED;
    for (const HostRequest& request : m_oRequests) {
      m_strRequest = request.name;
      outcome = m_oSession.Ask(request);
      if (outcome != Outcome::ANSWERED) {
        break;
      }
    }
    m_oProgress.End();
    return outcome;
  }

  // False, and the user is told, when deleting or unloading the module failed.
  bool End(int signal) {
    if (signal != 0) {
      WriteMessage("Stopping the module.");
    }
    m_bStopping = true;
    m_oSession.Stop(signal != 0);
    return LetGo(m_oSession);
  }

  void TakeAnswer(const HostAnswer& answer) {
    m_oProgress.End();
    WriteLine(m_oOptions.isJson ? AnswerJson(answer) : AnswerSentence(answer));
    if (!answer.isFinal) {
      return;
    }
    m_nWorstStatus = std::max(m_nWorstStatus, answer.GetStatus());
    const uint32_t opcode = OperationCode(answer.record);
    if (opcode == OC_CREATE_ARCHIVE) {
      TellOfCreation(answer.GetStatus());
    } else if (opcode == OC_TRANSFER_ARCHIVE && answer.GetStatus() == STATUS_DONE) {
      TellPlace("copy", m_oSession.GetFileTransfer().GetLastFile());
    }
  }

  void TellOfCreation(uint32_t status) const {
    std::string directory;
    if (status == STATUS_FAILED) {
      WriteMessage(ExplainFailedCreation(CChildWatch::Take(), m_bStopping));
    } else if (status == STATUS_DONE && GetDataDir(directory)) {
      TellPlace("archive", directory + ARCHIVE_FILE);
    }
  }

  static void TellPlace(const std::string& what, const std::string& file) {
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(file, error);
    WriteMessage("The " + what + " is " + file + (error ? "." : ", " + BytesText(size) + "."));
  }

  void ShowProgress(std::chrono::seconds waited) {
    std::string directory;
    std::string state = m_strRequest + ": " + std::to_string(waited.count()) + " s";
    if (GetDataDir(directory)) {
      state += ", " + BytesText(SizeOfFiles(directory)) + " in " + directory;
    }
    m_oProgress.Show(state);
  }

  const HostOptions& m_oOptions;
  const std::vector<HostRequest>& m_oRequests;
  const CChildWatch m_oChildWatch;
  CProgressLine m_oProgress = CProgressLine(CProgressLine::Kind::PASSING);
  std::string m_strRequest;  // the one that was asked last
  uint32_t m_nWorstStatus = 0;
  bool m_bAvailable = false;
  bool m_bStopping = false;
  CModuleSession m_oSession;
};

}  // namespace

int RunRequests(const HostOptions& options) {
  const std::vector<HostRequest> requests = ReadRequests(options);
  CheckBmcDirectory(options, requests);
  return Run(options, requests).Execute();
}
