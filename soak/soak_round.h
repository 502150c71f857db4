#pragma once

#include <atomic>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "frame/extension_module_interface.h"
#include "frame/sip_json.h"
#include "host/module_library.h"
#include "soak/collector_site.h"
#include "soak/request_book.h"
#include "soak/soak_switch.h"

// One life of the module: it is loaded, created and started, gets requests and notifications from
// four threads for a while, and is stopped or not, deleted and unloaded. There may be one at a
// time.
class CSoakRound {
 public:
  // `number` seeds the random numbers of the round. The other arguments must outlive the object.
  CSoakRound(uint32_t number, const std::string& module, const CCollectorSite& site,
             CRequestBook& book);

  // Returns what went wrong, one sentence each.
  std::vector<std::string> Run();

  // How long the end of the module took, in milliseconds.
  int64_t GetEndTime() const { return m_nEndTime; }

 private:
  void StartModule();
  void RunThreads();
  void EndModule();

  // The threads; each goes on until the end of the traffic.
  void SendJobs(RequestKind kind, uint32_t opcode);
  void SendOthers();
  void Disturb();

  void Send(RequestKind kind, uint32_t opcode, const char* more = "");
  void WaitForRoom() const;
  uint32_t Draw(uint32_t limit);
  void Complain(const std::string& sentence) { m_oComplaints.push_back(sentence); }

  const uint32_t m_nNumber;
  // Whether the sink gets every line; only then can refused tasks be recognised.
  const bool m_bTraced;
  const CCollectorSite& m_oSite;
  CRequestBook& m_oBook;
  CSoakSwitch m_oSwitch;
  std::mt19937 m_oRandom;
  CModuleLibrary m_oLibrary;
  CIExtensionModule* m_pModule = nullptr;
  std::atomic<bool> m_bSending = true;
  int64_t m_nEndTime = 0;
  std::vector<std::string> m_oComplaints;
};
