#include "host/commands.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "archive_module/names.h"
#include "frame/status.h"
#include "host/archive_contents.h"
#include "host/byte_count.h"
#include "host/guard_place.h"
#include "host/host_error.h"
#include "host/installation.h"
#include "host/module_session.h"
#include "host/output.h"
#include "host/private_machine.h"
#include "host/progress_line.h"
#include "host/run_history.h"
#include "host/status_text.h"
#include "platform/registry/registry_file.h"

namespace fs = std::filesystem;

namespace {

constexpr char COPY_NAME[] = "demo_copy.zip";
constexpr uint32_t MESSAGE_ID = 0x00010001;

void Tell(const std::string& line) { WriteLine("          " + line); }

void TellStep(const std::string& step) {
  WriteLine("");
  WriteLine("== " + step);
}

std::string OpcodeText(uint32_t opcode) {
  std::array<char, sizeof("0xFFFFFFFF")> text = {};
  snprintf(text.data(), text.size(), "0x%04X", opcode);
  return text.data();
}

class Demo {
 public:
  explicit Demo(const std::string& module)
      : m_oSession({module, DEMO_BMC, std::nullopt, 0, std::nullopt},
                   {[this](const HostAnswer& answer) { TellAnswer(answer); },
                    [this](std::chrono::seconds waited) { TellProgress(waited); }}) {}

  void Run() {
    TellStep("The host loads the module and starts it");
    Tell(m_oSession.GetLibrary().GetPath());
    Check(m_oSession.Start(), "The module did not start");
    Tell(std::string("is the module ") + m_oSession.GetLibrary().GetModuleName() + ", started");

    TellStep("Is the collector available?");
    Ask("query");
    TellStep("Create an archive");
    Ask("create");
    const std::string archive = std::string(DEMO_DATA_ROOT) + "/" + ARCHIVE_FILE;
    Tell("the archive is " + archive + ", " + BytesText(fs::file_size(archive)));
    TellStep("Transfer the archive to the BMC");
    Ask(std::string("transfer=") + COPY_NAME);
    Compare(archive, m_oSession.GetFileTransfer().GetLastFile());
    TellStep("What is in the copy");
    List(m_oSession.GetFileTransfer().GetLastFile());

    LetGo();
  }

  // With a collector that never ends, under the guard.
  void RunGuarded() {
    Check(m_oSession.Start(), "The module did not start with the guard");
    Tell("the module is started again");
    TellStep("Create an archive, with a collector that hangs");
    Ask("create", STATUS_FAILED);
    TellStep("Why did it fail?");
    const std::vector<CollectorRun> runs = ReadRunHistory();
    Check(!runs.empty() && runs.back().ended == "time", "The guard did not end the collector");
    Tell("the history of the guard: " + ExplainRunEnd(runs.back()));
    LetGo();
  }

 private:
  void LetGo() {
    TellStep("The host lets the module go");
    m_oSession.Stop();
    Tell("stopped");
    Check(m_oSession.Delete(), "The module could not be deleted");
    Tell("deleted");
    Check(m_oSession.Unload(), "The module is still in the process after it was unloaded");
    Tell("unloaded: nothing of it is left in the process");
  }

  static void Check(bool isRight, const std::string& otherwise) {
    if (!isRight) {
      throw CHostError(EX_SOFTWARE,
                       "The demo went wrong. " + otherwise +
                           ": run it again with --trace 3 and look at the last lines.");
    }
  }

  void Ask(const std::string& word, uint32_t status = STATUS_DONE) {
    const HostRequest request = MakeRequests(word, {}, MESSAGE_ID).front();
    WriteLine("host   -> " + word + " (" + OpcodeText(OperationCode(request.record)) + ")");
    m_nStatus = STATUS_PENDING;
    const auto outcome = m_oSession.Ask(request);
    if (outcome == CModuleSession::Outcome::INTERRUPTED) {
      m_oProgress.End();
      throw CHostError(SIGNAL_CODE + m_oSession.GetSignal(),
                       "The demo was interrupted: start it again to see the rest of it.");
    }
    Check(m_nStatus == status, "The answer to \"" + word + "\" was not \"" +
                                   (status == STATUS_DONE ? "done" : "failed") + "\"");
  }

  void TellAnswer(const HostAnswer& answer) {
    m_oProgress.End();
    m_nStatus = answer.GetStatus();
    WriteLine("module <- " + AnswerSentence(answer));
  }

  void TellProgress(std::chrono::seconds waited) {
    m_oProgress.Show("          " + std::to_string(waited.count()) + " s, " +
                     BytesText(SizeOfFiles(DEMO_DATA_ROOT)));
  }

  static void Compare(const std::string& archive, const std::string& copy) {
    Check(HaveSameContent(archive, copy), "The copy " + copy + " differs from the archive");
    Tell("HTI copied it to " + copy + ", byte for byte");
  }

  static void List(const std::string& archive) {
    const std::vector<ArchiveMember> members = ListArchive(archive);
    Check(!members.empty(), "The archive is empty");
    for (const ArchiveMember& member : members) {
      Tell(member.name + ", " + BytesText(static_cast<uintmax_t>(member.size)));
    }
  }

  CProgressLine m_oProgress = CProgressLine(CProgressLine::Kind::STORY);
  uint32_t m_nStatus = STATUS_PENDING;  // of the last answer
  CModuleSession m_oSession;
};

}  // namespace

int ShowDemo(const HostOptions& options) {
  WriteLine("The path of a diagnostic archive. Nothing of it stays on this machine.");
  TellStep("Install the collector");
  InstallDemoCollector(options.collector.empty() ? InstalledFile("lib/em-talvor/Talvor")
                                                 : options.collector);
  Tell(std::string("the program ") + DEMO_FILE_ROOT + "/" + COLLECTOR_NAME);
  WriteDemoRegistry();
  Tell(std::string("the registry ") + REGISTRY_FILE + ", which names it and " + DEMO_DATA_ROOT);
  Demo(options.module).Run();
  TellStep("Put the guard before the collector");
  InstallDemoGuard();
  for (const std::string& sentence : PutGuard()) {
    Tell(sentence);
  }
  Demo(options.module).RunGuarded();
  WriteLine("");
  WriteLine("All went well.");
  return EXIT_SUCCESS;
}
