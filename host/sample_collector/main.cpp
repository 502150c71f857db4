// The sample collector: packs what a support engineer asks for first into the archive that the
// module waits for. It replaces the real tool where that is not installed.

#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "archive_module/collector_files.h"
#include "archive_module/names.h"
#include "base/regular_file.h"
#include "host/sample_collector/machine_data.h"
#include "host/sample_collector/stop_signals.h"
#include "host/sample_collector/zip_archive.h"
#include "platform/registry/registry.h"

namespace {

constexpr int EXIT_USAGE = 2;

// The load is sampled this often, with this pause between two samples.
constexpr int SAMPLES = 4;
constexpr std::chrono::seconds SAMPLE_PAUSE(1);

std::string ArchivePath() {
  std::string directory;
  if (!GetDataDir(directory)) {
    throw std::runtime_error(
        std::string(
            "the registry names no data directory; the value \"Talvor\" of the key \"HKEY_LOCAL_MACHINE\\") +
        REGISTRY_POINTER_KEY +
        "\" must name a key with the subkey \"Setup\", and that must hold the text \"DataRoot\"");
  }
  return directory + ARCHIVE_FILE;
}

// Fills the archive and notes what it could not get.
class Collection {
 public:
  explicit Collection(CZipArchive& archive) : m_oArchive(archive) {}

  void AddText(const std::string& name, const std::string& text) {
    m_oArchive.Add(name, text);
    m_strContents += name + ": " + std::to_string(text.size()) + " bytes\n";
  }

  void AddFile(const std::string& name, const std::string& path) {
    std::string text;
    if (ReadRegularFile(path, text)) {
      AddText(name, text);
    } else {
      m_strContents += name + ": missing, " + path + " cannot be read\n";
    }
  }

  void AddKernelLog() {
    std::string text;
    if (ReadKernelLog(text)) {
      AddText("kernel.log", text);
    } else {
      m_strContents += "kernel.log: missing, this user may not read the kernel's messages\n";
    }
  }

  void AddContents() { m_oArchive.Add("contents.txt", m_strContents); }

 private:
  CZipArchive& m_oArchive;
  std::string m_strContents;
};

void CollectState(Collection& collection) {
  collection.AddFile("os-release", "/etc/os-release");
  collection.AddFile("version", "/proc/version");
  collection.AddFile("cpuinfo", "/proc/cpuinfo");
  collection.AddFile("meminfo", "/proc/meminfo");
  collection.AddFile("mounts", "/proc/mounts");
  collection.AddText("processes", ListProcesses());
  collection.AddKernelLog();
}

// A single sample says little about load and memory; their changes over some seconds do.
void CollectSamples(Collection& collection, const CStopSignals& signals) {
  for (int sample = 0; sample < SAMPLES; ++sample) {
    if (sample > 0) {
      signals.Pause(SAMPLE_PAUSE);
    }
    const std::string directory = "samples/" + std::to_string(sample) + "/";
    for (const std::string name : {"uptime", "loadavg", "stat", "meminfo"}) {
      collection.AddFile(directory + name, "/proc/" + name);
    }
  }
}

void Collect() {
  const CStopSignals signals;
  signal(SIGXFSZ, SIG_IGN);  // makes exceeding the file size limit a failed write
  CZipArchive archive(ArchivePath());
  Collection collection(archive);
  CollectState(collection);
  CollectSamples(collection, signals);
  collection.AddContents();
  archive.Finish();
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount > 1) {
    std::cerr << arguments[0]
              << ": takes no arguments; where the archive goes, the registry tells\n";
    return EXIT_USAGE;
  }
  try {
    Collect();
    return EXIT_SUCCESS;
  } catch (const std::exception& failure) {
    std::cerr << "Talvor: " << failure.what() << ".\n";
    return EXIT_FAILURE;
  }
}
