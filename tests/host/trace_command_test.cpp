#include "host/commands.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/host/host_program.h"
#include "tests/support/built_files.h"
#include "tests/support/read_only_mount.h"
#include "trace/config_files.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class TraceCommandTest : public HostProgramTest {
 protected:
  ~TraceCommandTest() override { std::filesystem::remove_all("/etc/orvane"); }

  static HostResult Trace(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {EM_HOST, "trace"});
    Program program(arguments);
    const int exitCode = program.Wait();
    return {exitCode, program.Output(), program.Errors()};
  }

  static void Write(const std::string& name, const std::string& text) {
    std::filesystem::create_directories(TRACE_CONFIG_DIRECTORY);
    std::ofstream(std::string(TRACE_CONFIG_DIRECTORY) + "/" + name) << text;
  }

  static std::string Read(const std::string& name) {
    std::ifstream file(std::string(TRACE_CONFIG_DIRECTORY) + "/" + name);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // Whether the module writes a line that it has at that level, as the files alone tell.
  bool ModuleTracesAt(int level) {
    static const char* const lines[] = {"",
                                        "CLEANUP",
                                        "complete Talvor archive data dir",
                                        "archive path",
                                        "open Talvor setup key",
                                        "<- SetupAction"};
    const std::string errors = Host("setup", {"cleanup"}).errors;
    return errors.find(lines[level]) != std::string::npos;
  }
};

}  // namespace

TEST_F(TraceCommandTest, WithoutFilesTracingIsOff) {
  const HostResult result = Trace({"show"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output,
            "level        0, nothing; no file has a section [EM_TALVOR]\n"
            "looks again  never; no file has a section [GlobalDebugSettings] with DynamicUpdate\n");
}

TEST_F(TraceCommandTest, SetMakesTheFileAndTheModuleTraces) {
  InstallCollector("");
  for (const int level : {1, 3, 5}) {
    EXPECT_EQ(Trace({"set", std::to_string(level)}).exitCode, 0);
    EXPECT_TRUE(ModuleTracesAt(level));
    EXPECT_TRUE(level == 5 || !ModuleTracesAt(level + 1));
  }
}

TEST_F(TraceCommandTest, SetTellsWhenItHolds) {
  EXPECT_EQ(Trace({"set", "2"}).output,
            "EM_TALVOR traces requests and main events (level 2 in "
            "/etc/orvane/CorvistaSuite/TraceConfig/global_trace.ini).\n"
            "An agent takes it over when it starts.\n");
  EXPECT_EQ(Trace({"dynamic", "10"}).output,
            "Agents that trace look for changes every 10 seconds, from their next start on.\n");
  EXPECT_THAT(Trace({"set", "3"}).output,
              HasSubstr("An agent that traces takes it over within 10 seconds, one that does not "
                        "when it starts.\n"));
  EXPECT_EQ(
      Trace({"dynamic", "1"}).output,
      "Agents that trace look for changes every 1 second; those that look already take it over "
      "within 10 seconds, others when they start.\n");
}

TEST_F(TraceCommandTest, AFileThatMayNotBeReadIsAnError) {
  Write("global_trace.ini", "[EM_TALVOR]\nFileDebugLevel=2\n");
  std::filesystem::permissions(TRACE_GLOBAL_FILE, std::filesystem::perms::none);
  // Without these, the permissions of files bind the administrator too.
  Program program({"/usr/bin/setpriv", "--bounding-set=-dac_override,-dac_read_search", EM_HOST,
                   "trace", "show"});
  EXPECT_EQ(program.Wait(), 77);
  EXPECT_EQ(program.Errors(), std::string("em_host: ") + TRACE_GLOBAL_FILE +
                                  " may not be read: run em_host as root.\n");
}

TEST_F(TraceCommandTest, ShowTellsWhatWasSet) {
  Trace({"set", "4"});
  Trace({"dynamic", "7"});
  EXPECT_EQ(Trace({"show"}).output,
            "level        4, calls and fine details; set in "
            "/etc/orvane/CorvistaSuite/TraceConfig/global_trace.ini\n"
            "looks again  every 7 seconds; set in "
            "/etc/orvane/CorvistaSuite/TraceConfig/global_trace.ini\n");
}

TEST_F(TraceCommandTest, ShowTellsOfTheEnvironment) {
  Program program({"/usr/bin/env", "CV_LOG_DEBUG_LEVEL=5", EM_HOST, "trace", "show"});
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(program.Output(),
              HasSubstr("environment  CV_LOG_DEBUG_LEVEL=5 holds over the files for what is "
                        "started from here\n"));
}

TEST_F(TraceCommandTest, OffSilencesTheModule) {
  InstallCollector("");
  Trace({"set", "5"});
  EXPECT_EQ(Trace({"off"}).exitCode, 0);
  EXPECT_EQ(Host("setup", {"cleanup"}).errors, "");
}

TEST_F(TraceCommandTest, WhatElseIsInTheFileStays) {
  Write("global_trace.ini",
        "; for all\n[GlobalDebugSettings]\n\nDynamicUpdate=5\n\n[EM_OTHER]\nFileDebugLevel=1\n");
  Trace({"set", "2"});
  Trace({"dynamic", "6"});
  EXPECT_EQ(Read("global_trace.ini"),
            "; for all\n[GlobalDebugSettings]\n\nDynamicUpdate=6\n\n[EM_OTHER]\nFileDebugLevel=1\n"
            "\n[EM_TALVOR]\n\nFileDebugLevel=2\n");
}

TEST_F(TraceCommandTest, SetChangesTheSectionThatTheModuleReads) {
  Write("a.ini", "[em_talvor]\n\nFileDebugLevel=1\n");
  Write("global_trace.ini", "[EM_TALVOR]\n\nFileDebugLevel=5\n");
  EXPECT_THAT(Trace({"set", "3"}).output,
              HasSubstr("(level 3 in /etc/orvane/CorvistaSuite/TraceConfig/a.ini)"));
  EXPECT_EQ(Read("a.ini"), "[em_talvor]\n\nFileDebugLevel=3\n");
  EXPECT_EQ(Read("global_trace.ini"), "[EM_TALVOR]\n\nFileDebugLevel=5\n");
}

TEST_F(TraceCommandTest, AChangeThatTheModuleWouldNotSeeIsRefused) {
  for (const std::string text : {"[A]\nEndOfFile\n", "[EM_TALVOR]\n;FileDebugLevel=1\nx=1\n"}) {
    Write("global_trace.ini", text);
    const HostResult result = Trace({"set", "3"});
    EXPECT_EQ(result.exitCode, 65);
    EXPECT_EQ(result.errors,
              "em_host: /etc/orvane/CorvistaSuite/TraceConfig/global_trace.ini was not changed: "
              "agents would not read the new value there. Remove the line \"EndOfFile\" from it, "
              "and lines of the section [EM_TALVOR] that contain \"FileDebugLevel\" besides its "
              "own.\n");
    EXPECT_EQ(Read("global_trace.ini"), text);
  }
}

TEST_F(TraceCommandTest, AFileThatCannotBeWrittenIsAnError) {
  std::filesystem::create_directories(TRACE_GLOBAL_FILE);
  const HostResult result = Trace({"dynamic", "3"});
  EXPECT_EQ(result.exitCode, 73);
  EXPECT_THAT(result.errors,
              StartsWith(std::string("em_host: ") + TRACE_GLOBAL_FILE + " cannot be written ("));
}

TEST_F(TraceCommandTest, AReadOnlyEtcIsCalledThat) {
  const ReadOnlyMount readOnly("/etc");
  if (!readOnly.IsMounted()) {
    GTEST_SKIP() << "this machine lets nobody mount";
  }
  const HostResult result = Trace({"set", "2"});
  EXPECT_EQ(result.exitCode, 73);
  EXPECT_EQ(result.errors, std::string("em_host: ") + TRACE_GLOBAL_FILE +
                               " cannot be written (Read-only file system): its file system is "
                               "mounted read-only: make it writable, or change the file where the "
                               "file system is made.\n");
}

TEST_F(TraceCommandTest, WhatItMakesCanBeReadByAllUnderEveryUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{077}}) {
    const mode_t before = umask(mask);
    EXPECT_EQ(Trace({"set", "3"}).exitCode, 0);
    umask(before);
    for (std::filesystem::path path = TRACE_CONFIG_DIRECTORY; path != "/etc";
         path = path.parent_path()) {
      EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0755)) << path;
    }
    EXPECT_EQ(std::filesystem::status(TRACE_GLOBAL_FILE).permissions(),
              std::filesystem::perms(0644));
    std::filesystem::remove_all("/etc/orvane");
  }
}

TEST_F(TraceCommandTest, BadCommandLinesAreRefused) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {}, {"set"}, {"set", "6"}, {"set", "x"}, {"dynamic"}, {"on"}}) {
    EXPECT_EQ(Trace(arguments).exitCode, 64);
  }
  EXPECT_FALSE(std::filesystem::exists("/etc/orvane"));
}
