// "em_host demo", in the sandbox of the test and with collectors of its own. That it makes a
// private machine for itself, and the sample collector, are shown by the test that runs it without
// either.

#include "host/commands.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "tests/host/host_program.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

// An empty zip file of one member "a", and commands that write it as the archive.
constexpr char WRITE_ARCHIVE[] =
    R"(printf 'PK\003\004\012\0\0\0\0\0\0\0\041\0\0\0\0\0\0\0\0\0\0\0\0\0\001\0\0\0aPK\001\002\036\003\012\0\0\0\0\0\0\0\041\0\0\0\0\0\0\0\0\0\0\0\0\0\001\0\0\0\0\0\0\0\0\0\0\0\244\201\0\0\0\0aPK\005\006\0\0\0\0\001\0\001\0\057\0\0\0\037\0\0\0\0\0' >/var/log/Talvor/data/Talvor_Data.zip)";

class DemoCommandTest : public HostProgramTest {
 protected:
  ~DemoCommandTest() override {
    std::filesystem::remove_all("/var/log/Talvor");
    std::filesystem::remove_all("/etc/em-talvor");
  }

  HostResult Demo(const std::string& commands) {
    return Host("demo", {"--collector", m_oFiles.WriteScript("collector", commands)});
  }
};

}  // namespace

TEST_F(DemoCommandTest, TellsTheWholeStory) {
  const HostResult result = Demo(std::string("sleep 1.2; ") + WRITE_ARCHIVE);
  EXPECT_EQ(result.exitCode, 0) << result.errors;
  EXPECT_THAT(
      result.output,
      AllOf(HasSubstr("host   -> query (0x3400)\n"
                      "module <- query: Talvor is available, done (status 0)\n"),
            HasSubstr("host   -> create (0x3401)\n"
                      "module <- create: queued, the final answer follows (status 22)\n"
                      "          1 s, 0 bytes\n"),
            HasSubstr("module <- transfer: done (status 0)\n"), HasSubstr("          a, 0 bytes\n"),
            HasSubstr("          the history of the guard: ended: it ran longer than RUN_TIME\n"),
            EndsWith("\nAll went well.\n")));
  EXPECT_EQ(
      result.errors,
      "Talvor guard: The collector was ended: it had run for 2 seconds, which is RUN_TIME.\n");
}

TEST_F(DemoCommandTest, FailsWithTheRequestThatFails) {
  const HostResult result = Demo("exit 1");
  EXPECT_EQ(result.exitCode, 70);
  EXPECT_THAT(result.output,
              EndsWith("module <- create: failed, or the switch is shutting down (status 6)\n"));
  EXPECT_EQ(result.errors,
            "em_host: The demo went wrong. The answer to \"create\" was not \"done\": run it again "
            "with --trace 3 and look at the last lines.\n");
}

TEST_F(DemoCommandTest, FailsWithAnArchiveThatIsNone) {
  const HostResult result = Demo("echo text >/var/log/Talvor/data/Talvor_Data.zip");
  EXPECT_EQ(result.exitCode, 70);
  EXPECT_THAT(result.errors, HasSubstr("em_host: The archive /var/log/Talvor/bmc/demo_copy.zip "
                                       "cannot be read ("));
}

TEST_F(DemoCommandTest, RefusesACollectorThatCannotBeRun) {
  const std::string text = m_oFiles.Write("text", "text");
  for (const std::string& collector : {std::string("/none"), m_oFiles.Path(), text}) {
    const HostResult result = Host("demo", {"--collector", collector});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_EQ(result.errors, "em_host: The collector " + collector +
                                 " is no program that can be run: name another with --collector "
                                 "FILE.\n");
    EXPECT_FALSE(std::filesystem::exists("/var/log/Talvor"));
  }
}

TEST_F(DemoCommandTest, ASignalInterruptsIt) {
  const HostResult result = Demo("kill -INT $PPID; exec sleep 60");
  EXPECT_EQ(result.exitCode, 130);
  EXPECT_EQ(result.errors,
            "em_host: The demo was interrupted: start it again to see the rest of it.\n");
}

TEST_F(DemoCommandTest, RefusesAMachineWithAnInstallation) {
  std::filesystem::create_directories("/etc/qamrel");
  const HostResult result = Demo("");
  EXPECT_EQ(result.exitCode, 71);
  EXPECT_THAT(result.errors, HasSubstr("em_host: The demo found /etc/qamrel and changes nothing"));
  EXPECT_TRUE(std::filesystem::is_empty("/etc/qamrel"));
  EXPECT_FALSE(std::filesystem::exists("/var/log/Talvor"));
}
