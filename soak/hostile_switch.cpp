#include "soak/hostile_switch.h"

#include <array>
#include <chrono>

#include "frame/opcode.h"
#include "frame/sip_json.h"
#include "soak/hostile_record.h"
#include "soak/throw_anything.h"

namespace {

// The streams of the two generators, beside those of the host's threads.
constexpr uint32_t WORKER_STREAM = 101;
constexpr uint32_t START_STREAM = 102;

constexpr std::array<uint32_t, 4> HTI_STATUSES = {0, 5, 77, WITHOUT_STATUS};

}  // namespace

// A call of the worker, which comes alone and always on the same thread.
class CHostileSwitch::CWorkerCall {
 public:
  explicit CWorkerCall(CHostileSwitch& owner) : m_oOwner(owner) {
    std::thread::id none;
    const std::thread::id caller = std::this_thread::get_id();
    if (!owner.m_oWorker.compare_exchange_strong(none, caller) && none != caller) {
      owner.m_oBook.Complain("The switch was called by two threads of the module.");
    }
    if (++owner.m_nCalls != 1) {
      owner.m_oBook.Complain("The switch was called by two jobs at once.");
    }
    if (owner.m_bIsModuleGone) {
      owner.m_oBook.Complain("The switch was called by a module that had been deleted.");
    }
  }
  ~CWorkerCall() { --m_oOwner.m_nCalls; }
  CWorkerCall(const CWorkerCall&) = delete;
  CWorkerCall& operator=(const CWorkerCall&) = delete;

 private:
  CHostileSwitch& m_oOwner;
};

CHostileSwitch::CHostileSwitch(CHostileBook& book, uint32_t seed)
    : m_oBook(book), m_oWorkerDraw(seed, WORKER_STREAM), m_oStartDraw(seed, START_STREAM) {}

uintptr_t CHostileSwitch::ForwardRequest(CIExtensionModule* module, SipJson* request) {
  const CWorkerCall call(*this);
  if (request->GetCmdUInt(0, "OC", 0) != OC_HTI_FILE_TRANSFER) {
    m_oBook.Complain("HTI was sent something else than a file transfer.");
  }
  Disturb(*module);
  ThrowAtTimes();
  const uint32_t status = m_oWorkerDraw.Of(HTI_STATUSES);
  if (status != WITHOUT_STATUS) {
    request->SetCmdUInt("ST", status);
  }
  return 1;
}

uintptr_t CHostileSwitch::ForwardFlag(CIExtensionModule* /*module*/, bool /*flag*/) {
  m_oBook.Complain("Slot 11 of the switch was called.");
  return 0;
}

uintptr_t CHostileSwitch::Forward(CIExtensionModule* /*module*/) {
  m_oBook.Complain("Slot 12 of the switch was called.");
  return 0;
}

uintptr_t CHostileSwitch::ReturnRequest(CIExtensionModule* module, SipJson* request,
                                        uint32_t messageIdHigh, uint32_t messageIdLow) {
  const CWorkerCall call(*this);
  Disturb(*module);
  const SipJson::Value& sip = request->m_oDocument["SIP"];
  const bool isMarked = sip.HasMember("C") && sip["C"].IsTrue();
  m_oBook.AnswerFinally(messageIdHigh << 16 | messageIdLow, ReadStatus(*request), isMarked);
  try {
    ThrowAtTimes();
  } catch (...) {
    m_oBook.NoteThrownBack();
    throw;
  }
  return 1;
}

uint32_t CHostileSwitch::GetAgentType() {
  if (m_oStartDraw.OneIn(3)) {
    ThrowAnything(m_oStartDraw.Below(3));
  }
  return m_oStartDraw.Below(7);
}

// Before the answer is entered in the book, so that a job that this queues is in it as well.
void CHostileSwitch::Disturb(CIExtensionModule& module) {
  if (m_oWorkerDraw.OneIn(4)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(m_oWorkerDraw.Below(20)));
  }
  if (m_oWorkerDraw.OneIn(8)) {
    SendHostileRequest(module, m_oBook, m_oWorkerDraw);
  }
  if (m_oWorkerDraw.OneIn(50) && m_bMayStop) {
    module.Stop();
  }
}

void CHostileSwitch::ThrowAtTimes() {
  if (m_oWorkerDraw.OneIn(10)) {
    ThrowAnything(m_oWorkerDraw.Below(3));
  }
}
