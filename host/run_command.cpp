#include "host/commands.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "frame/opcode.h"
#include "frame/status.h"
#include "host/collector_check.h"
#include "host/host_error.h"
#include "host/module_session.h"
#include "host/output.h"
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

// Before minutes are spent on an archive that has nowhere to go.
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

// False, and the user is told, when the module does not go as it should.
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

}  // namespace

int RunRequests(const HostOptions& options) {
  const std::vector<HostRequest> requests = ReadRequests(options);
  CheckBmcDirectory(options, requests);

  uint32_t worstStatus = 0;
  const auto print = [&](const HostAnswer& answer) {
    WriteLine(options.isJson ? AnswerJson(answer) : AnswerSentence(answer));
    if (answer.isFinal) {
      worstStatus = std::max(worstStatus, answer.GetStatus());
    }
  };
  CModuleSession session(
      {options.module, options.bmcDirectory, options.cabinet, options.agentType, options.timeLimit},
      {print, nullptr});
  const bool isAvailable = session.Start();
  if (!isAvailable) {
    WriteMessage(ExplainUnavailability());
  }

  using Outcome = CModuleSession::Outcome;
  Outcome outcome = Outcome::ANSWERED;
  auto request = requests.begin();
  for (; request != requests.end(); ++request) {
    outcome = session.Ask(*request);
    if (outcome != Outcome::ANSWERED) {
      break;
    }
  }
  // A signal from the terminal reaches the collector too, and its end may be seen first.
  const int signal = session.GetSignal();
  if (signal != 0) {
    WriteMessage("Stopping the module.");
  }
  session.Stop(signal != 0);
  const bool isGone = LetGo(session);
  if (outcome == Outcome::TIMED_OUT) {
    throw CHostError(EX_TEMPFAIL, "No final answer to \"" + request->name + "\" within " +
                                      SecondsText(*options.timeLimit) +
                                      ": allow more with --timeout, or look at the trace with "
                                      "--trace 3.");
  }
  const bool isInterrupted = outcome == Outcome::INTERRUPTED;
  if (const std::string advice = Advice(worstStatus, isAvailable);
      !advice.empty() && !isInterrupted) {
    WriteMessage(advice);
  }
  const int exitCode = ExitCode(worstStatus, isInterrupted ? signal : 0);
  return exitCode == 0 && !isGone ? EX_SOFTWARE : exitCode;
}
