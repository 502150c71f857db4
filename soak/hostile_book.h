#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "soak/soak_sink.h"

// What a request of a hostile host asks for. The last two name no command that the module knows.
enum class HostileRequest { QUERY, CREATION, TRANSFER, UNKNOWN, BROKEN };
constexpr size_t HOSTILE_REQUESTS = 5;

// Stands for the status of a request that has none.
constexpr uint32_t WITHOUT_STATUS = UINT32_MAX;

// What the module answered at once.
struct FirstAnswer {
  uint32_t result;
  uint32_t status;
  SinkNotes notes;  // of the sink, during the call
};

// Keeps what became of each request of one life of the module, by its message id, and holds it
// against what the headers of the host's interface say.
//
// Thread safety: every operation may be called from any thread.
class CHostileBook {
 public:
  // `isTold`: the sink gets every line during this life, so that it is known of each request
  // whether it was queued.
  explicit CHostileBook(bool isTold) : m_bTold(isTold), m_nFailedBefore(CountFailedJobs()) {}

  // A request is about to be sent. Returns its message id.
  uint32_t Open(HostileRequest kind, bool namesCabinet);

  void Answer(uint32_t messageId, const FirstAnswer& answer);

  // A final answer has come. `isMarked`: with "C", as each of them must be.
  void AnswerFinally(uint32_t messageId, uint32_t status, bool isMarked);

  // The switch throws in return for a final answer.
  void NoteThrownBack();

  // Whether each job that was queued has been answered, or lost to an exception. Only when told.
  bool IsSettled() const;

  // The module is gone. At most `mostDropped` jobs may have been dropped with it.
  void Close(size_t mostDropped);

  // Something else is wrong.
  void Complain(const std::string& sentence);

  std::vector<std::string> GetComplaints() const;

  // Adds how many requests of this life had which outcome.
  void AddTo(std::map<std::string, uint64_t>& totals) const;

 private:
  struct Entry {
    HostileRequest kind;
    bool namesCabinet;
    bool isAnswered = false;
    bool isQueued = false;
    uint32_t finalAnswers = 0;
  };

  int64_t CountUnsettled() const;
  void CheckFirst(uint32_t messageId, const Entry& entry, const FirstAnswer& answer);
  void CheckQueued(uint32_t messageId, const Entry& entry, const FirstAnswer& answer);
  void ComplainOf(uint32_t messageId, const std::string& what);

  const bool m_bTold;
  const uint64_t m_nFailedBefore;
  mutable std::mutex m_oLock;
  uint32_t m_nLastId = 0x10000;  // both halves of a message id count
  std::map<uint32_t, Entry> m_oEntries;
  std::map<std::string, uint64_t> m_oOutcomes;
  int64_t m_nQueued = 0;
  int64_t m_nAnswered = 0;
  int64_t m_nThrownBack = 0;
  std::vector<std::string> m_oComplaints;
};
