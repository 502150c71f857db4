#include "soak/request_book.h"

#include <algorithm>
#include <set>
#include <utility>

namespace {

constexpr uint32_t STATUS_PENDING = 22;

// A queue holds this many tasks; each of the two threads that send jobs may add one after the end.
constexpr size_t MOST_DROPPED = 19 + 2;

constexpr std::array<const char*, REQUEST_KINDS> KIND_NAMES = {"queries", "creations", "transfers",
                                                               "refused requests"};

// The statuses that the module may answer at once and finally, by kind. The soak's HTI answers 0, 5
// or nothing.
const std::array<std::set<uint32_t>, REQUEST_KINDS> FIRST_STATUSES = {
    {{0}, {STATUS_PENDING}, {STATUS_PENDING}, {20, UINT32_MAX}}};
const std::array<std::set<uint32_t>, REQUEST_KINDS> FINAL_STATUSES = {
    {{}, {0, 5, 6}, {0, 3, 5, 6, STATUS_PENDING}, {}}};

size_t IndexOf(RequestKind kind) { return static_cast<size_t>(kind); }

}  // namespace

uint32_t CRequestBook::Open(RequestKind kind) {
  const std::lock_guard guard(m_oLock);
  ++m_oTotals[IndexOf(kind)].sent;
  m_oEntries[++m_nLastId] = {kind, true, false, 0};
  return m_nLastId;
}

void CRequestBook::Answer(uint32_t messageId, uint32_t status, bool isRefused) {
  const std::lock_guard guard(m_oLock);
  Entry& entry = m_oEntries.at(messageId);
  Totals& totals = m_oTotals[IndexOf(entry.kind)];
  if (!FIRST_STATUSES[IndexOf(entry.kind)].contains(status)) {
    Complain(messageId, "was answered at once with status " + std::to_string(status));
  }
  entry.isRefused = isRefused;
  entry.isPending = status == STATUS_PENDING && !isRefused && entry.finalAnswers == 0;
  totals.refused += isRefused ? 1 : 0;
  if (status != STATUS_PENDING) {
    ++totals.statuses[status];
  }
}

void CRequestBook::AnswerFinally(uint32_t messageId, uint32_t status) {
  const std::lock_guard guard(m_oLock);
  const auto found = m_oEntries.find(messageId);
  if (found == m_oEntries.end()) {
    Complain(messageId, "was answered, but belongs to no request of the round");
    return;
  }
  Entry& entry = found->second;
  entry.isPending = false;
  ++entry.finalAnswers;
  ++m_oTotals[IndexOf(entry.kind)].statuses[status];
  if (!FINAL_STATUSES[IndexOf(entry.kind)].contains(status)) {
    Complain(messageId, "was answered finally with status " + std::to_string(status));
  }
}

size_t CRequestBook::CountPending() const {
  const std::lock_guard guard(m_oLock);
  return static_cast<size_t>(
      std::count_if(m_oEntries.begin(), m_oEntries.end(),
                    [](const auto& entry) { return entry.second.isPending; }));
}

std::vector<std::string> CRequestBook::Close() {
  const std::lock_guard guard(m_oLock);
  size_t dropped = 0;
  for (const auto& [messageId, entry] : m_oEntries) {
    const bool isJob = entry.kind == RequestKind::CREATION || entry.kind == RequestKind::TRANSFER;
    if (entry.finalAnswers > (isJob && !entry.isRefused ? 1U : 0U)) {
      Complain(messageId, "was answered finally " + std::to_string(entry.finalAnswers) + " times" +
                              (entry.isRefused ? " though it was refused" : ""));
    }
    if (isJob && !entry.isRefused && entry.finalAnswers == 0) {
      ++dropped;
      ++m_oTotals[IndexOf(entry.kind)].dropped;
    }
  }
  if (dropped > MOST_DROPPED) {
    m_oComplaints.push_back(std::to_string(dropped) +
                            " accepted requests were never answered, more than a queue holds.");
  }
  m_oEntries.clear();
  return std::exchange(m_oComplaints, {});
}

std::string CRequestBook::Summary() const {
  const std::lock_guard guard(m_oLock);
  std::string text;
  for (size_t index = 0; index < REQUEST_KINDS; ++index) {
    const Totals& totals = m_oTotals[index];
    text += "  " + std::to_string(totals.sent) + " " + KIND_NAMES[index] + ":";
    for (const auto& [status, count] : totals.statuses) {
      text += " " + std::to_string(count) + " with " +
              (status == UINT32_MAX ? "no status" : "status " + std::to_string(status)) + ",";
    }
    text += " " + std::to_string(totals.refused) + " not queued, " +
            std::to_string(totals.dropped) + " dropped by the end of the module\n";
  }
  return text;
}

void CRequestBook::Complain(uint32_t messageId, const std::string& what) {
  m_oComplaints.push_back("Request " + std::to_string(messageId) + " " + what + ".");
}
