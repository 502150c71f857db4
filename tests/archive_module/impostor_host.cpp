// A host program whose own classes and functions have the names of the module's, with bodies that
// end the process. It drives the module through the whole path of an archive; exit code 0 when all
// of it was right.
//
// It knows the interfaces and the layout of the record, and links nothing of the module.

#include <dlfcn.h>
#include <rapidjson/document.h>
#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "frame/extension_module_interface.h"
#include "frame/opcode.h"
#include "frame/status.h"
#include "frame/switch_interface.h"
#include "tests/support/built_files.h"
#include "tests/support/installed_registry.h"

namespace {

constexpr char ROOT[] = "/var/log/Talvor/";
constexpr char COLLECTOR[] = "/var/log/Talvor/Talvor";
constexpr std::chrono::seconds ANSWER_LIMIT(60);

// The layout of SipJson.
struct Record {
  rapidjson::Document document;
  uint32_t commandIndex = 0;

  rapidjson::Value& GetCommand() { return document["SIP"]["CMD"][commandIndex]; }
};

uint32_t StatusOf(Record& record) { return record.GetCommand()["ST"].GetUint(); }

bool Check(bool isRight, const char* what) {
  if (!isRight) {
    fprintf(stderr, "wrong: %s\n", what);
  }
  return isRight;
}

class Switch : public CSwitchBase {
 public:
  uintptr_t ForwardRequest(CIExtensionModule* /*module*/, SipJson* request) override {
    auto& record = *reinterpret_cast<Record*>(request);
    record.GetCommand().AddMember("ST", STATUS_DONE, record.document.GetAllocator());
    return 1;
  }
  uintptr_t ReturnRequest(CIExtensionModule* /*module*/, SipJson* request, uint32_t /*high*/,
                          uint32_t /*low*/) override {
    const std::lock_guard guard(m_oLock);
    m_oStatuses.push_back(StatusOf(*reinterpret_cast<Record*>(request)));
    m_oChanged.notify_all();
    return 1;
  }
  uint32_t GetAgentType() override { return AGENT_TYPE_AGENTLESS; }

  bool WaitForAnswer(size_t index, uint32_t status) {
    std::unique_lock lock(m_oLock);
    return m_oChanged.wait_for(lock, ANSWER_LIMIT, [&] { return m_oStatuses.size() > index; }) &&
           m_oStatuses[index] == status;
  }

 private:
  std::mutex m_oLock;
  std::condition_variable m_oChanged;
  std::vector<uint32_t> m_oStatuses;
};

void InstallCollector() {
  mkdir("/etc/qamrel", 0755);
  mkdir(ROOT, 0755);
  std::ofstream("/etc/qamrel/registry") << InstalledRegistry(SetupValues(ROOT, ROOT));
  std::ofstream(COLLECTOR) << "#!/bin/sh\necho data >" << ROOT << "Talvor_Data.zip\n";
  chmod(COLLECTOR, 0755);
}

uint32_t Send(CIExtensionModule& module, uint32_t opcode) {
  Record record;
  record.document.Parse((R"({"SIP":{"CMD":[{"OC":)" + std::to_string(opcode) + "}]}}").c_str());
  module.ModuleRequest(reinterpret_cast<SipJson&>(record));
  return StatusOf(record);
}

bool Drive(CIExtensionModule& module) {
  Switch owner;
  return Check(module.Start(&owner, 1) == 1, "the start") &&
         Check(module.SetCabinetNumber(0) == 1, "the cabinet number") &&
         Check(module.ModuleNotification(0x20001, 0, 0) == 0, "a notification") &&
         Check(Send(module, OC_QUERY_TALVOR) == STATUS_DONE, "the query") &&
         Check(Send(module, OC_CREATE_ARCHIVE) == STATUS_PENDING, "the creation") &&
         Check(owner.WaitForAnswer(0, STATUS_DONE), "the answer to the creation") &&
         Check(Send(module, OC_TRANSFER_ARCHIVE) == STATUS_PENDING, "the transfer") &&
         Check(owner.WaitForAnswer(1, STATUS_DONE), "the answer to the transfer") &&
         Check(module.Stop() == 1, "the stop");
}

template <typename Function>
Function Find(void* library, const char* name) {
  return reinterpret_cast<Function>(dlsym(library, name));
}

bool Run(void* library) {
  CIExtensionModule* module = nullptr;
  return Check(Find<uint32_t (*)(CIExtensionModule**, void*)>(library, "EM_Create")(&module,
                                                                                    nullptr) == 1,
               "the instance") &&
         Drive(*module) &&
         Check(Find<uint32_t (*)()>(library, "EM_Delete")() == 1, "the deletion") &&
         Check(Find<uint32_t (*)(uint32_t)>(library, "EM_SetupAction")(4) == 1, "the cleanup");
}

}  // namespace

int main() {
  setenv("CV_LOG_DEBUG_LEVEL", "5", 1);
  for (const char* name : {"_ZN9EM_TALVOR4StopEv", "_ZN7CThread4KillEv", "_ZTV9EM_TALVOR"}) {
    if (!Check(dlsym(RTLD_DEFAULT, name) != nullptr, name)) {
      return 1;
    }
  }
  InstallCollector();
  void* library = dlopen(EM_TALVOR_LIBRARY, RTLD_NOW);
  if (!Check(library != nullptr, "the module cannot be loaded") || !Run(library)) {
    return 1;
  }
  dlclose(library);
  return Check(dlopen(EM_TALVOR_LIBRARY, RTLD_NOW | RTLD_NOLOAD) == nullptr, "the unloading") ? 0
                                                                                              : 1;
}
