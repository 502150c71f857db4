// The manual page and the completion of em_host know what its command line knows.

#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "frame/opcode.h"
#include "tests/host/host_program.h"
#include "tests/support/built_files.h"

namespace {

using testing::Contains;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;

constexpr const char* COMMANDS[] = {"run",   "info",    "setup",   "trace", "doctor",
                                    "guard", "history", "inspect", "demo"};

std::set<std::string> LongOptions(const std::string& help) {
  std::set<std::string> options;
  for (size_t begin = help.find("--"); begin != std::string::npos;
       begin = help.find("--", begin + 2)) {
    const size_t end = help.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", begin);
    options.insert(help.substr(begin, end - begin));
  }
  return options;
}

// As the manual page writes it.
std::string WithEscapedHyphens(const std::string& option) {
  std::string escaped;
  for (const char character : option) {
    escaped += character == '-' ? "\\-" : std::string(1, character);
  }
  return escaped;
}

std::string HelpOf(const std::string& command) {
  Program program({EM_HOST, command, "--help"});
  EXPECT_EQ(program.Wait(), 0);
  return program.Output();
}

std::string ReadDocument(const std::string& path) {
  std::ifstream file(std::string(SOURCE_DIRECTORY) + "/" + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// What the completion offers for the last of these words.
std::vector<std::string> Complete(const std::string& words) {
  Program program({"/bin/bash", "-c",
                   std::string("PATH=${0%/*}:$PATH; source ") + SOURCE_DIRECTORY +
                       "/host/em_host.bash; cd / && COMP_WORDS=(em_host " + words +
                       "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _em_host; "
                       "printf '%s\\n' \"${COMPREPLY[@]}\"",
                   EM_HOST});
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_EQ(program.Errors(), "");
  std::vector<std::string> offers;
  std::istringstream lines(program.Output());
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty()) {
      offers.push_back(line);
    }
  }
  return offers;
}

}  // namespace

TEST(ManualTest, ExplainsEveryOption) {
  const std::string manual = ReadDocument("docs/man/em_host.1");
  for (const std::string command : COMMANDS) {
    EXPECT_THAT(manual, HasSubstr(".B em_host " + command));
    for (const std::string& option : LongOptions(HelpOf(command))) {
      EXPECT_THAT(manual, HasSubstr(WithEscapedHyphens(option))) << command;
    }
  }
}

TEST(ManualTest, ExplainsEveryRequest) {
  const std::string manual = ReadDocument("docs/man/em_host.1");
  for (const RequestName& request : REQUEST_NAMES) {
    EXPECT_THAT(manual, ContainsRegex(std::string("\n.BR? ") + request.word + "[ \n]"));
  }
}

TEST(InterfaceDocumentTest, HasARowForEveryRequest) {
  const std::string document = ReadDocument("docs/interface.md");
  const size_t begin = document.find("### Requests");
  const std::string chapter = document.substr(begin, document.find("\n#", begin) - begin);
  for (const RequestName& request : REQUEST_NAMES) {
    std::array<char, 32> opcode = {};
    snprintf(opcode.data(), opcode.size(), "\n| 0x%04X | ", request.opcode);
    EXPECT_THAT(chapter, HasSubstr(opcode.data() + std::string(request.question)));
  }
}

TEST(CompletionTest, OffersTheCommands) {
  EXPECT_THAT(Complete("''"), UnorderedElementsAre("run", "info", "setup", "trace", "doctor",
                                                   "guard", "history", "inspect", "demo"));
  EXPECT_THAT(Complete("d"), UnorderedElementsAre("doctor", "demo"));
}

TEST(CompletionTest, OffersEveryOptionOfACommand) {
  for (const std::string command : COMMANDS) {
    const std::vector<std::string> offers = Complete(command + " --");
    EXPECT_EQ(std::set<std::string>(offers.begin(), offers.end()), LongOptions(HelpOf(command)))
        << command;
  }
}

TEST(CompletionTest, OffersWhatAnArgumentMayBe) {
  EXPECT_THAT(Complete("run q"), ElementsAre("query"));
  EXPECT_THAT(Complete("run query ''"), IsSupersetOf({"query", "create", "transfer"}));
  EXPECT_THAT(Complete("setup c"), UnorderedElementsAre("convert", "cleanup"));
  EXPECT_THAT(Complete("trace s"), UnorderedElementsAre("show", "set"));
  EXPECT_THAT(Complete("trace set ''"), ElementsAre("0", "1", "2", "3", "4", "5"));
  EXPECT_THAT(Complete("run --trace ''"), ElementsAre("0", "1", "2", "3", "4", "5"));
  EXPECT_THAT(Complete("run --timeout ''"), IsEmpty());
  EXPECT_THAT(Complete("doctor ''"), IsEmpty());
}

TEST(CompletionTest, OffersFiles) {
  EXPECT_THAT(Complete("run --module et"), Contains("etc/"));
  EXPECT_THAT(Complete("run --bmc et"), Contains("etc/"));
  EXPECT_THAT(Complete("run @ et"), Contains("@etc/"));
  EXPECT_THAT(Complete("run @"), Contains("@etc/"));
  EXPECT_THAT(Complete("demo --collector et"), Contains("etc/"));
}
