// The module through its exported interface, records and tasks.

#include <dlfcn.h>
#include <unistd.h>

#include <semaphore>

#include "bench/files.h"
#include "bench/request_texts.h"
#include "costs/meter.h"
#include "frame/extension_module_interface.h"
#include "frame/sip_json.h"
#include "tasks/task_serializer.h"

namespace {

SipJson MakeRequest() {
  SipJson request;
  request.m_oDocument.Parse(REQUEST_TEXT);
  return request;
}

template <typename Function>
Function FindEntry(void* library, const char* name) {
  return reinterpret_cast<Function>(dlsym(library, name));
}

void CountModule() {
  meter::Count("load and unload the module",
               [] { dlclose(dlopen(EM_TALVOR_LIBRARY, RTLD_NOW | RTLD_LOCAL)); });
  void* library = dlopen(EM_TALVOR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  Require(library != nullptr, EM_TALVOR_LIBRARY);
  CIExtensionModule* module = nullptr;
  FindEntry<uint32_t (*)(CIExtensionModule**, void*)>(library, "EM_Create")(&module, nullptr);
  SipJson request = MakeRequest();
  meter::Count("availability request through the exported interface",
               [&] { module->ModuleRequest(request); });
  FindEntry<uint32_t (*)()>(library, "EM_Delete")();
  dlclose(library);
}

void CountCopy() {
  const SipJson request = MakeRequest();
  meter::Count("deep copy of a request record, and its end", [&] { const SipJson copy(request); });
}

constexpr useconds_t TIME_TO_FALL_ASLEEP = 50'000;
constexpr int TASKS_RUN = 16;

// Counts from the beginning of the first task to that of the last one, while all other threads are
// blocked.
class QueueOfTasks : public CTaskSerializer<SipJson> {
 public:
  QueueOfTasks() : CTaskSerializer(1) {}
  ~QueueOfTasks() override { TerminateSerialization(); }

  void RunTasks(const SipJson& request) {
    for (int task = 0; task <= TASKS_RUN; ++task) {
      InsertTask(request, 0, nullptr);
    }
    StartSerialization();
    m_oCallerIsReady.release();
    m_oIsDone.acquire();
  }

 protected:
  void OnTaskExecution(SipJson& /*message*/, int32_t /*level*/) override {
    if (m_nTasks == 0) {
      m_oCallerIsReady.acquire();
      usleep(TIME_TO_FALL_ASLEEP);
      meter::Begin();
    }
    if (m_nTasks++ == TASKS_RUN) {
      meter::End("tasks: run 16 that are queued");
      m_oIsDone.release();
    }
  }

 private:
  std::binary_semaphore m_oCallerIsReady{0};
  std::binary_semaphore m_oIsDone{0};
  int m_nTasks = 0;
};

// Counts what the caller does to queue a task for a sleeping worker, and the locks of both until it
// runs.
class SleepingWorker : public CTaskSerializer<SipJson> {
 public:
  SleepingWorker() : CTaskSerializer(1) { StartSerialization(); }
  ~SleepingWorker() override { TerminateSerialization(); }

  void WakeForTask(const SipJson& request) {
    constexpr char NAME[] = "tasks: queue one and wake the worker; locks until it runs";
    usleep(TIME_TO_FALL_ASLEEP);
    meter::Begin();
    InsertTask(request, 0, nullptr);
    meter::EndOfThread(NAME);
    m_oHasBegun.acquire();
    meter::EndOfCalls(NAME);
    m_oMayEnd.release();
  }

 protected:
  void OnTaskExecution(SipJson& /*message*/, int32_t /*level*/) override {
    m_oHasBegun.release();
    m_oMayEnd.acquire();
  }

 private:
  std::binary_semaphore m_oHasBegun{0};
  std::binary_semaphore m_oMayEnd{0};
};

void CountTasks() {
  const SipJson request = MakeRequest();
  {
    QueueOfTasks waiting;  // its worker is never started
    meter::Count("tasks: queue one, nobody waits",
                 [&] { waiting.InsertTask(request, 0, nullptr); });
  }
  SleepingWorker().WakeForTask(request);
  QueueOfTasks().RunTasks(request);
}

}  // namespace

void CountModuleCosts() {
  CountModule();
  CountCopy();
  CountTasks();
}
