#include "soak/collector_site.h"

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "archive_module/names.h"
#include "tests/support/installed_registry.h"

namespace {

constexpr char REGISTRY[] = "/etc/qamrel/registry";
constexpr char FOREIGN[] = "foreign/";

// "$D" is the directory, "$archive" the archive.
constexpr char SCRIPT[] = R"(
echo $$ > "$D/pid"
chance=$(od -An -N1 -tu1 /dev/urandom)
case $((chance % 12)) in
  0) exit 2 ;;
  1) kill -KILL $$ ;;
  2) exit 0 ;;
  3) exec sleep 60 ;;
  4) sleep 0.3 ;;
  5) sleep 0.05 ;;
esac
echo data > "$archive"
)";

// Empty also when the file goes away meanwhile, as that of a process does.
std::string Read(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

void WriteScript(const std::string& path, const std::string& text) {
  std::ofstream(path) << "#!/bin/sh\n" << text;
  chmod(path.c_str(), 0755);
}

}  // namespace

CCollectorSite::CCollectorSite() {
  std::string pattern = std::filesystem::temp_directory_path() / "em_talvor_soak.XXXXXX";
  m_strDirectory = std::string(mkdtemp(pattern.data())) + "/";
  m_strRegistry = InstalledRegistry(SetupValues(m_strDirectory, m_strDirectory));
  std::filesystem::create_directories("/etc/qamrel");
  std::ofstream(REGISTRY) << m_strRegistry;
  WriteScript(m_strDirectory + COLLECTOR_NAME,
              "D='" + m_strDirectory + "'\narchive=\"$D/" + ARCHIVE_FILE + "\"" + SCRIPT);
  std::filesystem::create_directory(m_strDirectory + FOREIGN);
  WriteScript(m_strDirectory + FOREIGN + COLLECTOR_NAME, "sleep 0.1\n");
}

CCollectorSite::~CCollectorSite() {
  std::error_code ignored;
  std::filesystem::remove_all(m_strDirectory, ignored);
  std::filesystem::remove_all("/etc/qamrel", ignored);
}

// A collector that hangs has executed "sleep" and is still a child of this process.
bool CCollectorSite::KillHangingCollector() const {
  pid_t pid = 0;
  if (!(std::ifstream(m_strDirectory + "pid") >> pid) || pid <= 1) {
    return false;
  }
  const std::string stat = Read("/proc/" + std::to_string(pid) + "/stat");
  const size_t name = stat.find("(sleep) S ");
  if (name == std::string::npos ||
      std::strtol(stat.c_str() + name + sizeof("(sleep) S ") - 1, nullptr, 10) != getpid()) {
    return false;
  }
  return kill(pid, SIGKILL) == 0;
}

void CCollectorSite::RunForeignCollector() const {
  std::string program = m_strDirectory + FOREIGN + COLLECTOR_NAME;
  char* arguments[] = {program.data(), nullptr};
  pid_t pid = 0;
  if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, arguments, environ) == 0) {
    waitpid(pid, nullptr, 0);
  }
}

void CCollectorSite::Clear() const {
  std::filesystem::remove(m_strDirectory + "pid");
  std::filesystem::remove(m_strDirectory + ARCHIVE_FILE);
}

bool CCollectorSite::IsRegistryUntouched() const { return Read(REGISTRY) == m_strRegistry; }
