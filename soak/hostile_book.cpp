#include "soak/hostile_book.h"

#include <set>

#include "frame/status.h"

namespace {

constexpr std::array<const char*, HOSTILE_REQUESTS> HOSTILE_KIND_NAMES = {
    "queries", "creations", "transfers", "unknown commands", "broken records"};

// What the module may answer at once, where nothing threw and no cabinet was named, and finally.
// HTI of the hostile host answers 0, 5, 77 or nothing.
const std::array<std::set<uint32_t>, HOSTILE_REQUESTS> HOSTILE_FIRST_STATUSES = {
    {{STATUS_DONE},
     {STATUS_PENDING, STATUS_NOT_AVAILABLE},
     {STATUS_PENDING, STATUS_NOT_AVAILABLE},
     {WITHOUT_STATUS},
     {WITHOUT_STATUS}}};
const std::array<std::set<uint32_t>, HOSTILE_REQUESTS> HOSTILE_FINAL_STATUSES = {
    {{},
     {STATUS_DONE, STATUS_FOREIGN_RUNS, STATUS_FAILED},
     {STATUS_DONE, STATUS_NOT_AVAILABLE, 5, STATUS_FAILED, STATUS_PENDING, 77},
     {},
     {}}};

size_t KindIndex(HostileRequest kind) { return static_cast<size_t>(kind); }

bool IsKnown(HostileRequest kind) {
  return kind != HostileRequest::UNKNOWN && kind != HostileRequest::BROKEN;
}

bool IsJob(HostileRequest kind) {
  return kind == HostileRequest::CREATION || kind == HostileRequest::TRANSFER;
}

std::string Shown(uint32_t status) {
  return status == WITHOUT_STATUS ? "no status" : "status " + std::to_string(status);
}

}  // namespace

uint32_t CHostileBook::Open(HostileRequest kind, bool namesCabinet) {
  const std::lock_guard guard(m_oLock);
  m_oEntries[++m_nLastId] = {kind, namesCabinet};
  return m_nLastId;
}

void CHostileBook::Answer(uint32_t messageId, const FirstAnswer& answer) {
  const std::lock_guard guard(m_oLock);
  Entry& entry = m_oEntries.at(messageId);
  entry.isAnswered = true;
  entry.isQueued = answer.notes.hasQueued;
  m_nQueued += entry.isQueued ? 1 : 0;
  ++m_oOutcomes[std::string(HOSTILE_KIND_NAMES[KindIndex(entry.kind)]) + " answered with " +
                Shown(answer.status) + (answer.notes.hasRefused ? ", not queued" : "")];
  CheckFirst(messageId, entry, answer);
  CheckQueued(messageId, entry, answer);
}

void CHostileBook::CheckFirst(uint32_t messageId, const Entry& entry, const FirstAnswer& answer) {
  if (answer.result > 1) {
    ComplainOf(messageId, "had the result " + std::to_string(answer.result));
  }
  if (answer.status == STATUS_EXCEPTION && answer.notes.hasThrown) {
    return;  // before the cabinet test the result is 0, else 1
  }
  const bool isElsewhere = answer.status == STATUS_OTHER_CABINET && entry.namesCabinet;
  if (!isElsewhere && !HOSTILE_FIRST_STATUSES[KindIndex(entry.kind)].contains(answer.status)) {
    // A broken record has no place for a status, be there an exception or not.
    ComplainOf(messageId, "was answered at once with " + Shown(answer.status));
  }
  const bool isHandled = IsKnown(entry.kind) && !isElsewhere;
  const bool mayDiffer = entry.kind == HostileRequest::BROKEN && answer.notes.hasThrown;
  if (!mayDiffer && (answer.result == 1) != isHandled) {
    ComplainOf(messageId,
               "had the result " + std::to_string(answer.result) + " and " + Shown(answer.status));
  }
}

void CHostileBook::CheckQueued(uint32_t messageId, const Entry& entry, const FirstAnswer& answer) {
  if (!m_bTold) {
    return;
  }
  if (entry.isQueued && (!IsJob(entry.kind) || answer.notes.hasRefused)) {
    ComplainOf(messageId, "was queued although it should not be");
  }
  if (answer.status == STATUS_PENDING && !entry.isQueued && !answer.notes.hasRefused) {
    ComplainOf(messageId, "was answered as pending, and neither queued nor refused");
  }
}

void CHostileBook::AnswerFinally(uint32_t messageId, uint32_t status, bool isMarked) {
  const std::lock_guard guard(m_oLock);
  const auto found = m_oEntries.find(messageId);
  if (found == m_oEntries.end()) {
    ComplainOf(messageId, "was answered finally, but belongs to no request of this life");
    return;
  }
  Entry& entry = found->second;
  ++entry.finalAnswers;
  ++m_nAnswered;
  ++m_oOutcomes[std::string(HOSTILE_KIND_NAMES[KindIndex(entry.kind)]) + " answered finally with " +
                Shown(status)];
  if (!HOSTILE_FINAL_STATUSES[KindIndex(entry.kind)].contains(status)) {
    ComplainOf(messageId, "was answered finally with " + Shown(status));
  }
  if (!isMarked) {
    ComplainOf(messageId, "was answered finally and not marked so");
  }
}

void CHostileBook::NoteThrownBack() {
  const std::lock_guard guard(m_oLock);
  ++m_nThrownBack;
}

// A job is lost when it threw; one whose answer the switch threw back threw as well, and is not.
int64_t CHostileBook::CountUnsettled() const {
  const auto failed = static_cast<int64_t>(CountFailedJobs() - m_nFailedBefore);
  return m_nQueued - m_nAnswered - (failed - m_nThrownBack);
}

bool CHostileBook::IsSettled() const {
  const std::lock_guard guard(m_oLock);
  return CountUnsettled() == 0;
}

void CHostileBook::Close(size_t mostDropped) {
  const std::lock_guard guard(m_oLock);
  for (const auto& [messageId, entry] : m_oEntries) {
    if (!entry.isAnswered) {
      ComplainOf(messageId, "was not answered at all");
    }
    if (entry.finalAnswers > 1 || (m_bTold && entry.finalAnswers == 1 && !entry.isQueued)) {
      ComplainOf(messageId, "was answered finally " + std::to_string(entry.finalAnswers) +
                                " times and " + (entry.isQueued ? "" : "not ") + "queued");
    }
  }
  const int64_t dropped = CountUnsettled();
  if (m_bTold && (dropped < 0 || dropped > static_cast<int64_t>(mostDropped))) {
    m_oComplaints.push_back("Of " + std::to_string(m_nQueued) + " jobs that were queued " +
                            std::to_string(dropped) +
                            " were neither answered nor lost to an exception, and at most " +
                            std::to_string(mostDropped) + " could be dropped.");
  }
  m_oOutcomes["jobs dropped by the end of a module"] +=
      m_bTold && dropped > 0 ? static_cast<uint64_t>(dropped) : 0;
}

void CHostileBook::Complain(const std::string& sentence) {
  const std::lock_guard guard(m_oLock);
  m_oComplaints.push_back(sentence);
}

std::vector<std::string> CHostileBook::GetComplaints() const {
  const std::lock_guard guard(m_oLock);
  return m_oComplaints;
}

void CHostileBook::AddTo(std::map<std::string, uint64_t>& totals) const {
  const std::lock_guard guard(m_oLock);
  for (const auto& [outcome, count] : m_oOutcomes) {
    totals[outcome] += count;
  }
}

void CHostileBook::ComplainOf(uint32_t messageId, const std::string& what) {
  m_oComplaints.push_back("Request " + std::to_string(messageId) + " " + what + ".");
}
