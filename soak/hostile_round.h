#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/module_library.h"
#include "soak/collector_site.h"
#include "soak/draw.h"
#include "soak/hostile_book.h"
#include "soak/hostile_caller.h"
#include "soak/hostile_switch.h"
#include "soak/trace_files.h"

// The library between its loading and its unloading, in the hands of a hostile host: sixteen
// threads call at random while one creates, starts, stops and deletes a module, some times over.
//
// Hostile is what the interface does not forbid. These rules are kept, since what breaks them may
// fail in any way:
// - One thread creates, starts and deletes. EM_Delete comes when no call runs on the instance, as
//   it frees that, and from inside no call; the exports that need no instance go on meanwhile.
// - No Start() runs beside a Stop() or follows one: a stopped module is not started again.
// - The switch outlives EM_Delete, because a job may end there after Stop().
// - A record is in one call at a time.
// - The sink never calls the module, and no thread calls the module with a lock that the sink or
//   the switch takes.
// - The environment stays as it is while the library is loaded, because the module reads it.
// - SIGCHLD is left alone, and nobody waits for a child that is not his: the collector is the
//   module's.
// - The library is unloaded when no call runs any more.
class CHostileRound {
 public:
  // The totals are added to.
  CHostileRound(uint32_t seed, const std::string& module, const CCollectorSite& collector,
                std::map<std::string, uint64_t>& totals);

  // Returns what went wrong, a sentence each.
  std::vector<std::string> Run();

  // How long the longest end of a module took, in milliseconds.
  int64_t GetEndTime() const { return m_nEndTime; }

 private:
  // How a life ends.
  enum class End { STOP_AMID_CALLS, STOP_WHEN_SETTLED, DELETE_ONLY };

  struct Life;

  void RunLives();
  void RunLife(uint32_t number);
  void Create(Life& life);
  void Start(Life& life);
  void EndLife(Life& life, End end);
  void Stop(Life& life);
  void WaitUntilSettled(Life& life);
  void Delete(Life& life);
  void Pause(uint32_t mostMilliseconds);
  void TakeComplaints(const CHostileBook& book);

  const uint32_t m_nSeed;
  const CCollectorSite& m_oCollector;
  std::map<std::string, uint64_t>& m_oTotals;
  CDraw m_oDraw;
  CTraceFiles m_oTraceFiles;
  CModuleLibrary m_oLibrary;
  const HostileSite m_oSite;
  int64_t m_nEndTime = 0;
  std::vector<std::string> m_oComplaints;
};
