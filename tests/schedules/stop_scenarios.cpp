// The module's end against a job: Stop() returns, a collector that can be killed is gone then, each
// job that began is answered once, and nothing of the module runs after its destruction.
//
// A collector in these scenarios ends when it is killed or told to and never by itself: a stop that
// waits for it has no end, which is reported.

#include <functional>
#include <memory>
#include <vector>

#include "archive_module/em_talvor.h"
#include "frame/opcode.h"
#include "frame/status.h"
#include "tests/frame/fake_switch.h"
#include "tests/frame/records.h"
#include "tests/schedules/scenario.h"
#include "tests/schedules/stub_machine.h"

using schedules::Require;
using schedules::Scenario;
using schedules::Thread;
using Fork = StubMachine::Fork;

namespace {

constexpr size_t ASYNC_REQUEST = 10;
constexpr size_t RETURN_REQUEST = 26;
// A slice of a join, in milliseconds, so that the seconds of a stop have few of them.
constexpr int JOIN_SLICE = 1000;

// A started module and its host.
class Site {
 public:
  explicit Site(StubMachine machine = {}) {
    g_machine = machine;
    schedules::StretchJoins(JOIN_SLICE);
    m_oSwitch.Answer([this](const FakeSwitch::Call& call) { return Answer(call); });
    Start();
  }
  ~Site() {
    Delete();
    Require(!g_machine.runs, "no collector outlives the module");
    Require(static_cast<int>(answers.size()) >= g_machine.launches, "each job is answered");
  }
  Site(const Site&) = delete;
  Site& operator=(const Site&) = delete;

  void Start() { Require(m_pModule->Start(m_oSwitch.Get(), 1) == 1, "the module starts"); }

  void Request(uint32_t opcode) {
    SipJson record = MakeCommands(R"({"OC":)" + std::to_string(opcode) + "}");
    m_pModule->ModuleRequest(record);
    Require(record.GetCmdUInt(0, "ST", 99) == STATUS_PENDING, "a job is answered pending");
  }

  // A creation whose job has begun.
  void BeginCreation() {
    Request(OC_CREATE_ARCHIVE);
    schedules::WaitFor([] { return g_machine.launches == 1; });
  }

  void Stop() { Require(m_pModule->Stop() == 1, "Stop() gives 1"); }
  void Delete() { m_pModule.reset(); }

  std::vector<uint32_t> answers;  // the final statuses
  std::function<void()> onReturn = [] {};
  std::function<void()> onTransfer = [] {};

 private:
  uint64_t Answer(const FakeSwitch::Call& call) {
    if (call.position == RETURN_REQUEST) {
      const auto& request = *reinterpret_cast<const SipJson*>(call.arguments[1]);
      answers.push_back(request.GetCmdUInt(0, "ST", 99));
      onReturn();
    } else if (call.position == ASYNC_REQUEST) {
      onTransfer();
    }
    return 0;
  }

  FakeSwitch m_oSwitch;
  std::unique_ptr<EM_TALVOR> m_pModule = std::make_unique<EM_TALVOR>();
};

void StopIdle() {
  Site site;
  site.Stop();
  Require(g_machine.kills == 0, "nothing is killed");
}
const Scenario stopIdle("stop-idle", StopIdle);

void StopAgainstRequest() {
  Site site;
  Thread host("host", [&] { site.Request(OC_CREATE_ARCHIVE); });
  site.Stop();
  host.Join();
  Require(!g_machine.runs, "the collector is gone");
  const size_t answered = site.answers.size();
  Require(static_cast<int>(answered) == g_machine.launches, "a job that began is answered");
  schedules::SleepFor(5000);
  Require(site.answers.size() == answered, "no job runs after Stop()");
}
const Scenario stopAgainstRequest("stop-request", StopAgainstRequest);

// The collector is killed, be it early or late, and its job answered before Stop() returns.
void StopKills(Fork fork) {
  Site site({.fork = fork});
  site.BeginCreation();
  site.Stop();
  Require(!g_machine.runs, "the collector is gone");
  Require(site.answers == std::vector<uint32_t>{STATUS_FAILED}, "the job is answered once");
}
const Scenario stopKillsEarly("stop-early", [] { StopKills(Fork::EARLY); });
const Scenario stopKillsLate("stop-late", [] { StopKills(Fork::LATE); });

void StopWithoutFork() {
  Site site({.fork = Fork::NEVER});
  site.Request(OC_CREATE_ARCHIVE);
  site.Stop();
  Require(g_machine.kills == 0, "nothing is killed");
  Require(static_cast<int>(site.answers.size()) == g_machine.launches, "the job is answered");
}
const Scenario stopWithoutFork("stop-never", StopWithoutFork);

// The collector ends by itself while the module stops.
void StopAgainstEnd() {
  Site site;
  site.BeginCreation();
  Thread collector("collector", [] { g_machine.mayEnd = true; });
  site.Stop();
  collector.Join();
  Require(!g_machine.runs, "the collector is gone");
  Require(site.answers.size() == 1, "the job is answered once");
}
const Scenario stopAgainstEnd("stop-ending", StopAgainstEnd);

// A collector that does not end keeps the worker, not Stop().
void StopWithoutEnd(StubMachine machine) {
  Site site(machine);
  site.BeginCreation();
  site.Stop();
  Require(g_machine.runs && site.answers.empty(), "the job goes on");
  g_machine.mayEnd = true;
  site.Delete();
  Require(site.answers == std::vector<uint32_t>{STATUS_DONE}, "it ends by itself");
}
const Scenario stopWithoutKill("stop-kill-fails", [] { StopWithoutEnd({.canBeKilled = false}); });
const Scenario stopInVain("stop-outlived", [] { StopWithoutEnd({.outlivesKill = true}); });

// The switch takes the answer only when Stop() has returned.
void StopAgainstHandBack() {
  Site site({.fork = Fork::NEVER});
  bool hasStopped = false;
  site.onReturn = [&] { schedules::WaitFor([&] { return hasStopped; }); };
  site.BeginCreation();
  site.Stop();
  hasStopped = true;
  site.Delete();
  Require(site.answers.size() == 1, "the job is answered once");
}
const Scenario stopAgainstHandBack("stop-hand-back", StopAgainstHandBack);

void StopDuringTransfer() {
  Site site({.hasArchive = true});
  bool isSent = false;
  bool isAnswered = false;
  site.onTransfer = [&] {
    isSent = true;
    schedules::SleepFor(9000);
    isAnswered = true;
  };
  site.Request(OC_TRANSFER_ARCHIVE);
  schedules::WaitFor([&] { return isSent; });
  site.Stop();
  Require(isAnswered, "a transfer is waited for");
}
const Scenario stopDuringTransfer("stop-transfer", StopDuringTransfer);

// A switch may stop the module when it gets an answer: the worker does not wait for itself.
void StopOnWorker() {
  Site site({.fork = Fork::NEVER});
  site.onReturn = [&] { site.Stop(); };
  site.BeginCreation();
  schedules::WaitFor([&] { return site.answers.size() == 1; });
  site.Stop();
  Require(site.answers.size() == 1, "the job is answered once");
}
const Scenario stopOnWorker("stop-on-worker", StopOnWorker);

void StopTwice() {
  Site site;
  site.BeginCreation();
  Thread second("second", [&] {
    site.Stop();
    Require(!g_machine.runs && site.answers.size() == 1, "the second stop waits for the first");
  });
  site.Stop();
  Require(!g_machine.runs && site.answers.size() == 1, "and the first for the worker");
  second.Join();
}
const Scenario stopTwice("stop-twice", StopTwice);

// A start does not forget the collector of a job.
void StartDuringJob(Fork fork) {
  Site site({.fork = fork});
  site.Request(OC_CREATE_ARCHIVE);
  site.Start();
  schedules::WaitFor([] { return g_machine.launches == 1; });
  site.Stop();
  Require(!g_machine.runs, "the collector is gone");
  Require(site.answers.size() == 1, "the job is answered once");
}
const Scenario startDuringJob("stop-start", [] { StartDuringJob(Fork::EARLY); });
const Scenario startDuringLateJob("stop-start-late", [] { StartDuringJob(Fork::LATE); });

// The destruction does what Stop() would have done.
void DeleteDuringJob(Fork fork) {
  Site site({.fork = fork});
  site.BeginCreation();
  site.Delete();
  Require(!g_machine.runs && site.answers.size() == 1, "the job has ended and is answered");
}
const Scenario deleteDuringJob("delete-early", [] { DeleteDuringJob(Fork::EARLY); });
const Scenario deleteDuringLateJob("delete-late", [] { DeleteDuringJob(Fork::LATE); });

// The id that a failed run has left is that of another process by now.
void DeleteAfterFailedRun() {
  Site site;
  site.BeginCreation();
  schedules::WaitFor([] { return g_machine.runs; });
  g_machine.wasKilled = true;  // by somebody else
  site.Delete();
  Require(g_machine.kills == 0, "no stale id is killed");
}
const Scenario deleteAfterFailedRun("delete-stale", DeleteAfterFailedRun);

}  // namespace
