#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// What a request asks for.
enum class RequestKind { QUERY, CREATION, TRANSFER, REFUSED };
constexpr size_t REQUEST_KINDS = 4;

// Stands for the status of a request that has none.
constexpr uint32_t NO_STATUS = UINT32_MAX;

// A ledger of the requests of a round, by message id: what the module answered at once, and how
// often and with which status it answered finally.
//
// Thread safety: every operation may be called from any thread.
class CRequestBook {
 public:
  // A request is about to be sent. Returns its message id.
  uint32_t Open(RequestKind kind);

  // What the module answered at once; `isRefused` when its serializer did not take the task.
  void Answer(uint32_t messageId, uint32_t status, bool isRefused);

  // A final answer has come.
  void AnswerFinally(uint32_t messageId, uint32_t status);

  // The requests that wait for a final answer.
  size_t CountPending() const;

  // Ends the round, after the module is gone, and forgets its requests. Returns what is wrong, one
  // sentence each.
  std::vector<std::string> Close();

  // The final statuses of all rounds so far, a line for each kind of request.
  std::string Summary() const;

 private:
  struct Entry {
    RequestKind kind;
    bool isPending;
    bool isRefused;
    uint32_t finalAnswers;
  };
  struct Totals {
    uint64_t sent = 0;
    uint64_t refused = 0;
    uint64_t dropped = 0;
    std::map<uint32_t, uint64_t> statuses;
  };

  void Complain(uint32_t messageId, const std::string& what);

  mutable std::mutex m_oLock;
  uint32_t m_nLastId = 0;
  std::map<uint32_t, Entry> m_oEntries;
  std::vector<std::string> m_oComplaints;
  std::array<Totals, REQUEST_KINDS> m_oTotals;
};
