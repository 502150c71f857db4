#include "host/host_answer.h"

#include "frame/opcode.h"
#include "frame/status.h"
#include "host/host_request.h"
#include "host/json_line.h"
#include "host/status_text.h"

namespace {

// What the answer to a query says; empty for another answer.
std::string Availability(const HostAnswer& answer) {
  uint32_t isAvailable = 0;
  const SipJson& record = answer.record;
  if (OperationCode(record) != OC_QUERY_TALVOR || answer.GetStatus() != STATUS_DONE ||
      !record.GetIntegerData(record.m_nCmdIndex, isAvailable)) {
    return {};
  }
  return isAvailable != 0 ? "Talvor is available, " : "Talvor is not available, ";
}

}  // namespace

uint32_t HostAnswer::GetStatus() const {
  return record.GetCmdUInt(record.m_nCmdIndex, "ST", STATUS_UNHANDLED);
}

std::string AnswerSentence(const HostAnswer& answer) {
  const uint32_t status = answer.GetStatus();
  return answer.name + ": " + Availability(answer) + StatusText(status) + " (status " +
         std::to_string(status) + ")";
}

std::string AnswerJson(const HostAnswer& answer) {
  CJsonLine line;
  line.AddText("request", answer.name);
  line.AddBool("final", answer.isFinal);
  line.AddNumber("status", answer.GetStatus());
  line.AddText("text", StatusText(answer.GetStatus()));
  line.AddValue("record", answer.record.m_oDocument);
  return line.Finish();
}
