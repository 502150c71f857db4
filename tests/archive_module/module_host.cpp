#include "tests/archive_module/module_host.h"

#include <dlfcn.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "archive_module/names.h"
#include "platform/process/process_table.h"
#include "tests/support/built_files.h"
#include "tests/support/descriptor_count.h"
#include "tests/support/installed_registry.h"
#include "tests/support/trace_session.h"

namespace {

constexpr uint32_t NO_ANSWER = 999;

std::string TextOf(const SipJson& record) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  record.m_oDocument.Accept(writer);
  return buffer.GetString();
}

// Where the collector is when the guard stands in its place.
constexpr char GUARDED_DIRECTORY[] = "guarded/";

void WriteProgram(const std::string& file, const std::string& script) {
  std::ofstream(file) << "#!/bin/sh\n" << script << "\n";
  chmod(file.c_str(), 0755);
}

// The thread sanitizer starts a thread of its own along with the first one.
void StartThreadOnce() {
  static const bool isStarted = [] {
    std::string task;
    std::thread([&task] { task = "/proc/self/task/" + std::to_string(gettid()); }).join();
    return WaitUntil([&task] { return !std::filesystem::exists(task); });
  }();
  EXPECT_TRUE(isStarted);
}

}  // namespace

uintptr_t TestSwitch::ForwardRequest(CIExtensionModule* /*module*/, SipJson* request) {
  {
    const std::lock_guard guard(m_oLock);
    m_oHtiRequests.push_back(TextOf(*request));
  }
  if (onHtiRequest) {
    onHtiRequest(*request);
  }
  return 1;
}

uintptr_t TestSwitch::ReturnRequest(CIExtensionModule* /*module*/, SipJson* request,
                                    uint32_t messageIdHigh, uint32_t messageIdLow) {
  if (onAnswer) {
    onAnswer(*request);
  }
  EXPECT_EQ(messageIdHigh << 16 | messageIdLow, request->GetCmdUInt(request->m_nCmdIndex, "MI", 0));
  {
    const std::lock_guard guard(m_oLock);
    m_oAnswers.push_back(TextOf(*request));
    m_oStatuses.push_back(request->GetCmdUInt(request->m_nCmdIndex, "ST", NO_ANSWER));
  }
  if (onAnswered) {
    onAnswered();
  }
  return 1;
}

std::vector<std::string> TestSwitch::HtiRequests() {
  const std::lock_guard guard(m_oLock);
  return m_oHtiRequests;
}

std::vector<std::string> TestSwitch::Answers() {
  const std::lock_guard guard(m_oLock);
  return m_oAnswers;
}

uint32_t TestSwitch::StatusOf(size_t index) {
  WaitUntil([&] { return Answers().size() > index; });
  const std::lock_guard guard(m_oLock);
  return index < m_oStatuses.size() ? m_oStatuses[index] : NO_ANSWER;
}

void TestSwitch::Forget() {
  const std::lock_guard guard(m_oLock);
  m_oHtiRequests = {};
  m_oAnswers = {};
  m_oStatuses = {};
}

ModuleHost::ModuleHost() {
  std::string pattern = std::filesystem::temp_directory_path() / "em_talvor.XXXXXX";
  m_strDirectory = std::string(mkdtemp(pattern.data())) + "/";
  m_strArchive = m_strDirectory + ARCHIVE_FILE;
}

ModuleHost::~ModuleHost() {
  UnloadModule();
  std::filesystem::remove_all(m_strDirectory);
  std::filesystem::remove_all("/etc/qamrel");
}

void ModuleHost::InstallCollector(const std::string& script) {
  WriteRegistry(m_strDirectory, m_strDirectory);
  std::string directory = m_strDirectory;
  if (const char* guard = getenv("EM_TALVOR_GUARD"); guard != nullptr) {
    WriteProgram(directory + COLLECTOR_NAME, std::string("exec '") + guard + "/Talvor'");
    directory += GUARDED_DIRECTORY;
    std::filesystem::create_directory(directory);
  }
  WriteProgram(directory + COLLECTOR_NAME,
               "D='" + m_strDirectory + "'\narchive='" + m_strArchive + "'\n" + script);
}

void ModuleHost::WriteRegistry(const std::string& fileRoot, const std::string& dataRoot) {
  std::filesystem::create_directories("/etc/qamrel");
  std::string values = SetupValues(fileRoot, dataRoot);
  if (getenv("EM_TALVOR_GUARD") != nullptr) {
    values += "GuardedFileRoot=s=" + fileRoot + GUARDED_DIRECTORY + "\n";
  }
  std::ofstream("/etc/qamrel/registry") << InstalledRegistry(values);
}

void ModuleHost::WriteRegistryText(const std::string& setup, const std::string& pointer) {
  std::filesystem::create_directories("/etc/qamrel");
  std::ofstream("/etc/qamrel/registry") << InstalledRegistry(setup, pointer);
}

bool ModuleHost::WaitForCollector() const {
  return WaitUntil([this] { return std::filesystem::exists(m_strDirectory + "runs"); });
}

void ModuleHost::LoadModule() {
  m_pLibrary = dlopen(EM_TALVOR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(m_pLibrary, nullptr) << dlerror();
  Create = reinterpret_cast<decltype(Create)>(dlsym(m_pLibrary, "EM_Create"));
  Delete = reinterpret_cast<decltype(Delete)>(dlsym(m_pLibrary, "EM_Delete"));
  GetModuleName = reinterpret_cast<decltype(GetModuleName)>(dlsym(m_pLibrary, "EM_GetModuleName"));
  SetupAction = reinterpret_cast<decltype(SetupAction)>(dlsym(m_pLibrary, "EM_SetupAction"));
}

void ModuleHost::UnloadModule() {
  if (m_pLibrary == nullptr) {
    return;
  }
  if (m_pModule != nullptr) {
    Delete();
    m_pModule = nullptr;
  }
  dlclose(m_pLibrary);
  m_pLibrary = nullptr;
}

bool ModuleHost::IsLoaded() const {
  void* library = dlopen(EM_TALVOR_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
  if (library != nullptr) {
    dlclose(library);
  }
  return library != nullptr;
}

uint32_t ModuleHost::CreateAndStart() {
  if (getenv("EM_TALVOR_GUARD") != nullptr) {
    WaitUntil([] {  // What is left of a guard that was killed would be another collector.
      int32_t pid = 0;
      return !FindProcessByName(pid, COLLECTOR_NAME);
    });
  }
  if (m_pLibrary == nullptr) {
    LoadModule();
  }
  EXPECT_EQ(Create(&m_pModule, nullptr), 1U);
  return m_pModule->Start(&m_oSwitch, 0x00120034);
}

uint32_t ModuleHost::StartAfresh() {
  UnloadModule();
  return CreateAndStart();
}

void ModuleHost::StartWithRunningCollector() {
  std::filesystem::remove(m_strDirectory + "runs");
  ASSERT_EQ(StartAfresh(), 1U);
  EXPECT_EQ(Send(CREATE), std::make_pair(1U, 22U));
  ASSERT_TRUE(WaitForCollector());
}

uint32_t ModuleHost::DeleteModule() {
  m_pModule = nullptr;
  return Delete();
}

std::pair<uint32_t, uint32_t> ModuleHost::Send(const std::string& command) {
  SipJson request = MakeRequest(command);
  const uint32_t result = m_pModule->ModuleRequest(request);
  return {result, StatusOf(request)};
}

uint32_t ModuleHost::Run(const std::string& command) {
  const size_t answers = m_oSwitch.Answers().size();
  EXPECT_EQ(Send(command), std::make_pair(1U, 22U));
  return m_oSwitch.StatusOf(answers);
}

size_t ModuleHost::CountThreads() {
  StartThreadOnce();
  const std::filesystem::directory_iterator threads("/proc/self/task");
  return static_cast<size_t>(std::distance(begin(threads), end(threads)));
}

bool ModuleHost::HasOnlyThreads(size_t count) {
  return WaitUntil([count] { return CountThreads() == count; });
}

ptrdiff_t ModuleHost::CountDescriptors() {
  StartThreadOnce();
  return ::CountDescriptors();
}

bool ModuleHost::HasChildren() { return waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD; }

SipJson ModuleHost::MakeRequest(const std::string& command) {
  SipJson request;
  request.m_oDocument.Parse((R"({"SIP":{"V":1,"CMD":[)" + command + "]}}").c_str());
  return request;
}

uint32_t ModuleHost::StatusOf(const SipJson& request) {
  return request.GetCmdUInt(request.m_nCmdIndex, "ST", NO_ANSWER);
}
