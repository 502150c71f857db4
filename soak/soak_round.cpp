#include "soak/soak_round.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "frame/extension_module.h"
#include "frame/opcode.h"
#include "soak/soak_sink.h"

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr uint32_t ACTION_CLEANUP = 4;

// Without a trace, refused tasks look like others, so no more are sent than a queue holds.
constexpr size_t MOST_PENDING = 15;

// The grace period of the module, and what a loaded machine may add to it.
constexpr int64_t LONGEST_END = 2100 + 20000;

}  // namespace

CSoakRound::CSoakRound(uint32_t number, const std::string& module, const CCollectorSite& site,
                       CRequestBook& book)
    : m_nNumber(number),
      m_bTraced(number % 2 == 0),
      m_oSite(site),
      m_oBook(book),
      m_oSwitch(book),
      m_oRandom(number),
      m_oLibrary(module) {}

std::vector<std::string> CSoakRound::Run() {
  setenv("CV_LOG_DEBUG_LEVEL", m_bTraced ? "5" : "0", 1);
  StartModule();
  RunThreads();
  if (!m_oLibrary.Unload()) {
    Complain("The library is still in the process after it was unloaded.");
  }
  for (const std::string& complaint : m_oBook.Close()) {
    Complain(complaint);
  }
  return m_oComplaints;
}

void CSoakRound::StartModule() {
  if (m_oLibrary.Create(&m_pModule, nullptr) != 1 || m_pModule->Start(&m_oSwitch, 1) != 1) {
    Complain("The module did not start.");
  }
  m_pModule->SetCabinetNumber(0);
  m_pModule->ModuleNotification(SCN_SWITCH_REQUEST_ENABLED, 0, 0);
}

// With tracing on, requests go on while the module is stopped.
void CSoakRound::RunThreads() {
  const auto time = milliseconds(300 + Draw(2000));
  const bool isStopped = Draw(3) != 0;
  const bool isShutDown = Draw(4) == 0;
  const bool isSentToTheEnd = m_bTraced && isStopped;
  std::array<std::thread, 4> threads = {
      std::thread([this] { SendJobs(RequestKind::CREATION, OC_CREATE_ARCHIVE); }),
      std::thread([this] { SendJobs(RequestKind::TRANSFER, OC_TRANSFER_ARCHIVE); }),
      std::thread([this] { SendOthers(); }), std::thread([this] { Disturb(); })};
  const auto join = [&] {
    m_bSending = false;
    for (std::thread& thread : threads) {
      if (thread.joinable()) {
        thread.join();
      }
    }
  };
  std::this_thread::sleep_for(time);
  if (isShutDown) {
    m_pModule->ModuleNotification(SCN_SWITCH_SHUTDOWN, 0, 0);
    std::this_thread::sleep_for(time / 4);
  }
  if (!isSentToTheEnd) {
    join();
  }
  const Clock::time_point begin = Clock::now();
  if (isStopped && m_pModule->Stop() != 1) {
    Complain("Stop() has failed.");
  }
  const Clock::time_point stopped = Clock::now();
  join();
  const Clock::time_point joined = Clock::now();
  EndModule();
  m_nEndTime =
      std::chrono::duration_cast<milliseconds>((stopped - begin) + (Clock::now() - joined)).count();
  if (m_nEndTime > LONGEST_END) {
    Complain("The end of the module took " + std::to_string(m_nEndTime) + " ms.");
  }
}

void CSoakRound::EndModule() {
  if (m_oLibrary.Delete() != 1) {
    Complain("EM_Delete has failed.");
  }
  m_pModule = nullptr;
  if (m_oLibrary.Delete() != 0) {
    Complain("EM_Delete has deleted a module twice.");
  }
}

void CSoakRound::SendJobs(RequestKind kind, uint32_t opcode) {
  while (m_bSending) {
    WaitForRoom();
    Send(kind, opcode, R"(,"TO":"0x3C","DA":{"RAW":[98,109,99,46,122,105,112,0]})");
    std::this_thread::sleep_for(milliseconds(m_bTraced ? 5 : 20));
  }
}

void CSoakRound::SendOthers() {
  while (m_bSending) {
    Send(RequestKind::QUERY, OC_QUERY_TALVOR);
    Send(RequestKind::REFUSED, OC_CREATE_ARCHIVE, R"(,"CA":7)");
    Send(RequestKind::REFUSED, 0x3405, R"(,"DA":{"a":[1,2.5,"text",{"b":null}]})");
    Send(RequestKind::REFUSED, 0x1234);
    std::this_thread::sleep_for(milliseconds(1));
  }
}

void CSoakRound::Disturb() {
  for (uint32_t turn = 0; m_bSending; ++turn) {
    m_pModule->ModuleNotification(turn % 2 == 0 ? SCN_POWERSTATE_SUSPEND : SCN_POWERSTATE_RESUME,
                                  turn, 0);
    m_pModule->SetCabinetNumber(0);
    std::array<uint8_t, 246> record = {246};
    m_pModule->GetModuleInfo(record.data());
    m_oLibrary.GetModuleName();
    m_oLibrary.SetupAction(turn % 50 == 49 ? ACTION_CLEANUP : turn % 4);
    if (turn % 10 == 9) {
      m_oSite.KillHangingCollector();
    }
    if ((turn + m_nNumber) % 40 == 39) {
      m_oSite.RunForeignCollector();
    }
    std::this_thread::sleep_for(milliseconds(20));
  }
}

void CSoakRound::Send(RequestKind kind, uint32_t opcode, const char* more) {
  const uint32_t messageId = m_oBook.Open(kind);
  SipJson request;
  request.m_oDocument.Parse((R"({"SIP":{"V":1,"CMD":[{"OC":)" + std::to_string(opcode) +
                             R"(,"MI":)" + std::to_string(messageId) + more + "}]}}")
                                .c_str());
  TakeSinkNotes();
  m_pModule->ModuleRequest(request);
  m_oBook.Answer(messageId, request.GetCmdUInt(0, "ST", NO_STATUS), TakeSinkNotes().hasRefused);
}

void CSoakRound::WaitForRoom() const {
  while (!m_bTraced && m_bSending && m_oBook.CountPending() >= MOST_PENDING) {
    std::this_thread::sleep_for(milliseconds(5));
  }
}

uint32_t CSoakRound::Draw(uint32_t limit) {
  return std::uniform_int_distribution<uint32_t>(0, limit - 1)(m_oRandom);
}
