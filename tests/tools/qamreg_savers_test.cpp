// qamreg beside an agent that saves the registry, in every order of their system calls.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <utility>

#include "platform/registry/registry.h"
#include "tests/support/fault_plan.h"
#include "tests/support/interleaving.h"
#include "tests/support/registry_files.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/stepped_child.h"
#include "tests/support/system_calls.h"
#include "tools/qamreg/commands.h"
#include "tools/qamreg/failure.h"

namespace {

using testing::AnyOf;
using testing::Each;

const std::string SAVED_BEFORE = "old=d=1\n";
const std::string SAVED_BY_AGENT = "agent=s=" + std::string(100, 'x') + "\n";
const std::string SAVED_BY_TOOL = "tool=d=2\n";

const std::string OF_AGENT = TreeText(SAVED_BY_AGENT + SAVED_BEFORE);
const std::string OF_TOOL = TreeText(SAVED_BEFORE + SAVED_BY_TOOL);
const std::string OF_BOTH = TreeText(SAVED_BY_AGENT + SAVED_BEFORE + SAVED_BY_TOOL);

class QamregSaversTest : public RegistryFilesTest, public testing::WithParamInterface<int> {
 protected:
  // The registry and its backup.
  using Texts = std::pair<std::string, std::string>;

  // An agent that loaded the registry long ago.
  static int RunAgent() {
    CRegistry registry("", HKEY_LOCAL_MACHINE);
    SteppedChild::Begin();
    return registry.SetValue("agent", std::string(100, 'x').c_str()) + registry.Flush();
  }

  static int RunTool(const std::function<void()>& command) {
    SteppedChild::Begin();
    try {
      command();
      return 0;
    } catch (const CFailure&) {
      return 1;
    }
  }

  static void Prepare() {
    ResetRegistry();
    WriteTree(SAVED_BEFORE);
  }

  static Texts Read() { return {ReadFile(REGISTRY_FILE), ReadFile(REGISTRY_BACKUP_FILE)}; }

  // Whoever saves second keeps what the other one saved: the tool in the registry, which it loads
  // then, the agent in the backup.
  static void ExpectBothKept(const std::function<void()>& command) {
    const Interleavings savers({RunAgent, [&command] { return RunTool(command); }});
    const auto check = [](const InterleavedRun& run) {
      EXPECT_THAT(run.exitCodes, Each(0)) << run.schedule;
      EXPECT_THAT(Read(), AnyOf(Texts(OF_BOTH, OF_AGENT), Texts(OF_AGENT, OF_TOOL)))
          << run.schedule;
    };
    EXPECT_GT(savers.Try(GetSwitches(), Prepare, check), 10);
  }

  const ExchangeRefusal m_oRefusal{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Qamreg, QamregSaversTest, testing::Values(0, EINVAL),
                         [](const testing::TestParamInfo<int>& error) {
                           return error.param == 0 ? "WithExchange" : "WithoutExchange";
                         });

TEST_P(QamregSaversTest, AddedValueIsKept) {
  ExpectBothKept([] { AddValue("HKLM", "tool", "REG_DWORD", "2"); });
}

TEST_P(QamregSaversTest, ImportedValueIsKept) {
  const ScratchDirectory files;
  const std::string file = files.Write("import", "[HKEY_LOCAL_MACHINE]\ntool=d=2\n\n\n");
  ExpectBothKept([&file] { ImportFile(file); });
}

// A fault that the tests above are to find.
TEST_P(QamregSaversTest, SaversThatTakeNoLockAreFound) {
  const auto fault = calls::flock.Answer([](int, int) { return 0; });
  const auto tool = [] { return RunTool([] { AddValue("HKLM", "tool", "REG_DWORD", "2"); }); };
  int wrong = 0;
  Interleavings({RunAgent, tool}).Try(1, Prepare, [&wrong](const InterleavedRun&) {
    const bool isRight = Read() == Texts(OF_BOTH, OF_AGENT) || Read() == Texts(OF_AGENT, OF_TOOL);
    wrong += isRight ? 0 : 1;
  });
  EXPECT_GT(wrong, 0);
}

}  // namespace
