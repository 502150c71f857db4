// A host with all that belongs to one: a switch, the module "HTI" and a trace sink. It asks whether
// the collector is there, has it create an archive and transfers that, which copies it to a
// directory:
//   g++ -std=c++17 -rdynamic host.cpp -lem_talvor_record -o host
//   CV_LOG_DEBUG_LEVEL=2 ./host /usr/lib/qamrel/em_talvor /tmp

#include <dlfcn.h>
#include <em_talvor/frame/entry_points.h>
#include <em_talvor/frame/extension_module_interface.h>
#include <em_talvor/frame/notification.h>
#include <em_talvor/frame/opcode.h>
#include <em_talvor/frame/sip_json.h>
#include <em_talvor/frame/status.h>
#include <em_talvor/frame/switch_interface.h>
#include <em_talvor/trace/trace_sink.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <future>
#include <system_error>
#include <utility>

namespace {

constexpr std::chrono::minutes TIME_LIMIT(30);  // some answers never come: see the interface

// What the module sees of its host. The module calls ForwardRequest() and ReturnRequest() on a
// thread of its own, and the records are its own: what is needed of them is copied.
class CSwitch final : public CSwitchBase {
 public:
  explicit CSwitch(std::filesystem::path bmc) : m_oBmc(std::move(bmc)) {}

  // Requests for other modules: this one plays HTI, and the directory the BMC.
  uintptr_t ForwardRequest(CIExtensionModule*, SipJson* request) override {
    uint32_t status = STATUS_UNHANDLED;
    if (request->GetCmdUInt(request->m_nCmdIndex, "OC", 0) == OC_HTI_FILE_TRANSFER) {
      const SipJson::Value& data = *request->FindCmdMember(request->m_nCmdIndex, "DA");
      std::error_code error;
      const auto name = std::filesystem::path(data["BmcFilePath"].GetString()).filename();
      copy_file(data["LocalFilePath"].GetString(), m_oBmc / name,
                std::filesystem::copy_options::overwrite_existing, error);
      status = error ? STATUS_FAILED : STATUS_DONE;
    }
    request->SetCmdUInt("ST", status);
    return 1;
  }

  // The final answer to a request that was answered "pending".
  uintptr_t ReturnRequest(CIExtensionModule*, SipJson* request, uint32_t, uint32_t) override {
    m_oAnswer.set_value(*request);
    return 1;
  }

  // Before each request: what the final answer comes to.
  std::future<SipJson> ExpectAnswer() {
    m_oAnswer = {};
    return m_oAnswer.get_future();
  }

 private:
  const std::filesystem::path m_oBmc;
  std::promise<SipJson> m_oAnswer;
};

// Asks one request and returns its final status; STATUS_PENDING when no final answer has come in
// time, after which no other may be asked. A transfer calls the copy as "DA" says.
uint32_t Ask(CIExtensionModule& module, CSwitch& theSwitch, Opcode opcode) {
  SipJson request;
  request.m_oDocument.Parse(R"({"SIP": {"V": 1, "CMD": [{"DA": "archive.zip"}]}})");
  request.SetCmdUInt("OC", opcode);
  std::future<SipJson> answer = theSwitch.ExpectAnswer();
  module.ModuleRequest(request);
  if (request.GetCmdUInt(0, "ST", STATUS_UNHANDLED) == STATUS_PENDING &&
      answer.wait_for(TIME_LIMIT) == std::future_status::ready) {
    request = answer.get();
  }
  const uint32_t status = request.GetCmdUInt(0, "ST", STATUS_UNHANDLED);
  std::printf("request 0x%04X: status %u\n", opcode, status);
  return status;
}

}  // namespace

// The trace sink, which modules look up by the name "Debug". Texts bring their own line breaks.
class CTraceOutput final : public ITraceSink {
 public:
  void Placeholder0() override {}
  void Placeholder1() override {}
  bool IsValid() override { return true; }
  void Placeholder3() override {}
  void Placeholder4() override {}
  void Placeholder5() override {}
  void Placeholder6() override {}
  void PlainOutput(const char* format, va_list arguments, const char* moduleName) override {
    Output(format, arguments, moduleName);
  }
  void Output(const char* format, va_list arguments, const char*) override {
    std::vfprintf(stderr, format, arguments);
  }
};
[[gnu::visibility("default")]] CTraceOutput Debug;

int main(int count, char** arguments) {
  if (count != 3) {
    std::fprintf(stderr, "usage: %s MODULE DIRECTORY\n", arguments[0]);
    return 64;
  }
  void* library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
  const auto create = library == nullptr
                          ? nullptr
                          : reinterpret_cast<decltype(&EM_Create)>(dlsym(library, "EM_Create"));
  CIExtensionModule* module = nullptr;
  if (create == nullptr || create(&module, nullptr) == 0) {
    std::fprintf(stderr, "%s: %s\n", arguments[1], dlerror());
    return 70;
  }
  CSwitch theSwitch(arguments[2]);
  module->Start(&theSwitch, 1);  // the number by which the switch knows it
  module->ModuleNotification(SCN_SWITCH_REQUEST_ENABLED, 0, 0);
  uint32_t status = STATUS_DONE;
  for (const Opcode opcode : {OC_QUERY_TALVOR, OC_CREATE_ARCHIVE, OC_TRANSFER_ARCHIVE}) {
    status = status == STATUS_DONE ? Ask(*module, theSwitch, opcode) : status;
  }
  module->ModuleNotification(SCN_SWITCH_SHUTDOWN, 0, 0);
  module->Stop();
  reinterpret_cast<decltype(&EM_Delete)>(dlsym(library, "EM_Delete"))();
  dlclose(library);
  return static_cast<int>(status);
}
