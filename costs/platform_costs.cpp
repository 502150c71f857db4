// Trace sites, events, registry, profile strings, processes and directories.

#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <string>

#include "bench/child_processes.h"
#include "bench/files.h"
#include "bench/profile_texts.h"
#include "bench/registry_texts.h"
#include "bench/sites.h"
#include "costs/meter.h"
#include "platform/directory.h"
#include "platform/process/process_control.h"
#include "platform/process/process_table.h"
#include "platform/profile/profile.h"
#include "platform/registry/registry.h"
#include "platform/registry/registry_file.h"
#include "platform/registry/registry_node.h"
#include "platform/registry/registry_tree.h"
#include "platform/sync/event.h"
#include "trace/debug_client.h"

namespace {

constexpr RegistryShape SHAPE = {10'000, 100};
constexpr int PROCESSES = 50;
constexpr int FILES = 100;

void CountTraceSites() {
  std::atomic<int> number = 1;
  meter::Count("64 trace sites while tracing is off", [&] {
    const int shown = number;
    SITES(DEBUG_TRACE(3, "\nEM_TALVOR (Start)   : %d %d", shown, shown));
  });
}

void CountEvents() {
  CEvent event(false, false);
  meter::Count("event: set, then a wait that finds it set", [&] {
    event.Set();
    event.Wait(EVENT_INFINITE);
  });
  meter::Count("event: wait 0 ms, not set", [&] { event.Wait(0); });
  meter::Count("event: create and destroy, named", [] { const CEvent named(false, true, "name"); });
}

std::string RegistryText() {
  std::string text = "[HKEY_LOCAL_MACHINE]\n";
  Describe(
      SHAPE, [&](const std::string& key) { text += "[" + key + "]\n"; },
      [&](const std::string& name, const std::string& value) {
        text += name + "=s=" + value + "\n";
      },
      [&] { text += "\n"; });
  return text + "\n\n";
}

void CountRegistryFile() {
  std::unique_ptr<CRegistryNode> node;
  const auto load = [&] { CRegistryTree::RestoreNode(REGISTRY_FILE, *node); };
  node = std::make_unique<CRegistryNode>();
  load();
  node = std::make_unique<CRegistryNode>();
  meter::Begin();
  load();
  meter::End("registry: load 10,000 values in 100 keys");
  meter::Begin();
  node.reset();
  meter::End("registry: free them");
  meter::Count("registry: save them", [] {
    CRegistryTree::Get().MarkDirty();
    CRegistryTree::Get().SaveTree();
  });
}

void CountRegistryValues() {
  const std::string key = KeyName(SHAPE.keys / 2);
  const std::string name = ValueName(SHAPE.total / SHAPE.keys / 3);
  char text[64];
  uint32_t size = 0;
  meter::Count("registry: construct, open, query, destroy", [&] {
    CRegistry registry(key.c_str(), HKEY_LOCAL_MACHINE);
    size = sizeof text;
    registry.QueryValue(text, name.c_str(), &size);
  });
  CRegistry registry(key.c_str(), HKEY_LOCAL_MACHINE);
  meter::Count("registry: query a string", [&] {
    size = sizeof text;
    registry.QueryValue(text, name.c_str(), &size);
  });
  Require(registry.GetStatus() == REGISTRY_OK, "QueryValue");
  meter::Count("registry: store a string over another",
               [&] { registry.SetValue(name.c_str(), "/opt/agent/data/0"); });
}

void CountRegistry() {
  WriteWhole(REGISTRY_FILE, RegistryText(), false);
  CountRegistryValues();
  CountRegistryFile();
}

void CountProfile() {
  const BenchFile file(ProfileText(PROFILE_LINES));
  const CProfile profile(file.GetPath());
  const std::string section = LastProfileSection(PROFILE_LINES);
  const std::string key = ProfileKey(PROFILE_LINES - 1);
  meter::Count("profile string: read the last key of 1,000 lines",
               [&] { profile.ReadString(section, key); });
  meter::Count("profile string: write a key into 1,000 lines",
               [&] { profile.WriteString(section, key, "value of the key 000"); });
}

void CountProcesses() {
  {
    const SleepingProcesses sleeping(PROCESSES);
    meter::Count("find a process by name among 50", [] {
      int32_t pid = 0;
      FindProcessByName(pid, "Talvor");
    });
  }
  meter::Count("launch a program and wait for its end", [] {
    std::atomic<int32_t> pid = 0;
    int32_t exitCode = 0;
    RunProgram("/bin/true", pid, exitCode, "/", false, false);
  });
}

void MakeTree(const std::string& path) {
  Require(mkdir(path.c_str(), 0755) == 0, path.c_str());
  const std::string inner = path + "/directory";
  Require(mkdir(inner.c_str(), 0755) == 0, inner.c_str());
  for (int file = 0; file < FILES; ++file) {
    WriteWhole((inner + "/file" + std::to_string(file)).c_str(), "x", false);
  }
}

void CountRemoval() {
  constexpr char TREE[] = "/etc/qamrel/tree";
  MakeTree(TREE);
  CDirectory::RemoveDirectory(TREE, true);
  MakeTree(TREE);
  meter::Begin();
  CDirectory::RemoveDirectory(TREE, true);
  meter::End("remove 100 files in a directory");
}

}  // namespace

void CountPlatformCosts() {
  CountTraceSites();
  CountEvents();
  CountRegistry();
  CountProfile();
  CountProcesses();
  CountRemoval();
}
