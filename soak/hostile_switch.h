#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "frame/switch_interface.h"
#include "soak/draw.h"
#include "soak/hostile_book.h"

// The switch of a hostile host: takes its time, throws, sends requests to the module and stops it
// from inside its operations. Enters final answers in the book, and plays HTI.
//
// Thread safety: the module may call from any of its threads.
class CHostileSwitch final : public CSwitchBase {
 public:
  // The book must outlive the object.
  CHostileSwitch(CHostileBook& book, uint32_t seed);

  // From now on the switch may also stop the module.
  void AllowStop() { m_bMayStop = true; }

  // The module has been deleted: no call may come any more.
  void NoteDeletion() { m_bIsModuleGone = true; }

  uintptr_t ForwardRequest(CIExtensionModule* module, SipJson* request) override;
  uintptr_t ForwardFlag(CIExtensionModule* module, bool flag) override;
  uintptr_t Forward(CIExtensionModule* module) override;
  uintptr_t ReturnRequest(CIExtensionModule* module, SipJson* request, uint32_t messageIdHigh,
                          uint32_t messageIdLow) override;
  uint32_t GetAgentType() override;

 private:
  class CWorkerCall;

  void Disturb(CIExtensionModule& module);
  void ThrowAtTimes();

  CHostileBook& m_oBook;
  CDraw m_oWorkerDraw;
  CDraw m_oStartDraw;  // for the thread that starts the module
  std::atomic<bool> m_bMayStop = false;
  std::atomic<bool> m_bIsModuleGone = false;
  std::atomic<int> m_nCalls = 0;  // that run, on the worker
  std::atomic<std::thread::id> m_oWorker;
};
