// A request record goes through ModuleRequest() of a module whose collector is not installed, with
// every trace line formatted. No job is ever queued: nothing is forked and no time passes.
//
// Input: see json_input.h. The server's cabinet is 3.

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "archive_module/archive_transfer.h"
#include "archive_module/em_talvor.h"
#include "archive_module/names.h"
#include "frame/opcode.h"
#include "frame/status.h"
#include "fuzz/check.h"
#include "fuzz/json_input.h"
#include "tests/frame/fake_switch.h"
#include "tests/support/default_sink.h"
#include "trace/debug_client.h"

// Formats each line, so that every argument is read.
class FormattingSink final : public DefaultSink {
 public:
  [[gnu::format(printf, 2, 0)]] void Output(const char* format, va_list arguments,
                                            const char* /*moduleName*/) override {
    static char line[8192];
    FUZZ_CHECK(vsnprintf(line, sizeof(line), format, arguments) >= 0);
  }
};

// The trace client looks up this symbol.
FormattingSink Debug;

namespace {

constexpr uint32_t SERVER_CABINET = 3;

FakeSwitch& TheSwitch() {
  static FakeSwitch theSwitch;
  return theSwitch;
}

EM_TALVOR* StartModule() {
  setenv("CV_LOG_DEBUG_LEVEL", "5", 1);
  setenv("CV_LOG_DYNAMIC_UPDATE", "0", 1);
  g_oDebugClient.Load(MODULE_NAME);
  auto* module = new EM_TALVOR;
  module->SetCabinetNumber(SERVER_CABINET);
  FUZZ_CHECK(module->Start(TheSwitch().Get(), 0x00010002) == 0);
  return module;
}

EM_TALVOR& TheModule() {
  static EM_TALVOR* const module = StartModule();
  return *module;
}

uint32_t Read(const SipJson& request, const char* key, uint32_t defaultValue) {
  return request.GetCmdUInt(request.m_nCmdIndex, key, defaultValue);
}

bool IsOpcodeOfModule(uint32_t opcode) {
  return std::any_of(REQUEST_NAMES.begin(), REQUEST_NAMES.end(),
                     [=](const RequestName& request) { return request.opcode == opcode; });
}

void CheckAnswer(const SipJson& before, const SipJson& after, uint32_t result) {
  if (Read(before, "CA", 0) != SERVER_CABINET && before.HasCmdMember(before.m_nCmdIndex, "CA")) {
    FUZZ_CHECK(result == 0);
    FUZZ_CHECK(Read(after, "ST", STATUS_PENDING) == STATUS_OTHER_CABINET);
    return;
  }
  const uint32_t opcode = Read(before, "OC", 0);
  FUZZ_CHECK(result == (IsOpcodeOfModule(opcode) ? 1U : 0U));
  switch (opcode) {
    case OC_QUERY_TALVOR:
      FUZZ_CHECK(Read(after, "ST", STATUS_PENDING) == STATUS_DONE);
      FUZZ_CHECK(Read(after, "DA", 1) == 0);
      break;
    case OC_CREATE_ARCHIVE:
    case OC_TRANSFER_ARCHIVE:
      FUZZ_CHECK(Read(after, "ST", STATUS_PENDING) == STATUS_NOT_AVAILABLE);
      break;
    default:
      FUZZ_CHECK(result == 1 || IsSameJson(before.m_oDocument, after.m_oDocument));
      break;
  }
}

// What the transfer job makes of the request.
void BuildForHti(const SipJson& request) {
  const std::string name = ReadBmcName(request);
  const SipJson hti = BuildHtiRequest({2, "/archive", name, Read(request, "TO", 0)});
  const SipJson::Value& path = hti.m_oDocument["SIP"]["CMD"][0]["DA"]["BmcFilePath"];
  FUZZ_CHECK(name == std::string(path.GetString(), path.GetStringLength()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  EM_TALVOR& module = TheModule();
  SipJson request = ParseRecord(data, size);
  const SipJson before = request;
  CheckAnswer(before, request, module.ModuleRequest(request));
  FUZZ_CHECK(request.m_nCmdIndex == before.m_nCmdIndex);
  BuildForHti(before);
  return 0;
}
