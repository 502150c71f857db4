#include "host/command_line.h"

#include <sysexits.h>

#include <CLI/CLI.hpp>
#include <string>

#include "archive_module/names.h"
#include "frame/opcode.h"
#include "host/installation.h"
#include "host/output.h"
#include "tools/command_line/mistake.h"

namespace {

constexpr char DESCRIPTION[] =
    "Loads the extension module em_talvor, as a server-management agent does, and drives it.";

constexpr char EXIT_CODES[] =
    "Exit codes: of run the greatest final status of a request (63 for greater ones), and 128+N when\n"
    "signal N ended it early and no request failed; 0 when all went well. From 64 on em_host itself\n"
    "could not go on, and says why: 64 command line, 65 no record in a file or an archive that is not\n"
    "right, 66 file not readable, 69 doctor found something wrong or the guard is off, 70 not a working\n"
    "module, 71 refused by the system, 72 module not found, 73 cannot write, 74 output lost, 75 no final\n"
    "answer in time, 77 rights missing, 78 doctor found something to repair, 125 no safe way to run the\n"
    "demo.";

constexpr size_t REQUEST_WIDTH = 15;  // of the words in the help
constexpr uint32_t HIGHEST_TRACE_LEVEL = 5;
constexpr uint32_t LONGEST_TIME_LIMIT = 65'535;
constexpr uint32_t LONGEST_INTERVAL = UINT32_MAX - 1;
constexpr uint32_t LARGEST_LIMIT = 1'048'576;  // MiB

// CLI11 has rules of its own for a std::optional number; this parses it like any other.
void AddNumber(CLI::App& command, const std::string& name, std::optional<uint32_t>& target,
               const std::string& kind, const std::string& description,
               const CLI::Validator& range) {
  command
      .add_option_function<uint32_t>(
          name, [&target](const uint32_t& value) { target = value; }, description)
      ->option_text(kind)
      ->check(range);
}

void AddModule(CLI::App& command, HostOptions& options) {
  command
      .add_option("--module", options.module,
                  "The module; by default the one installed or built with em_host")
      ->type_name("FILE");
}

void AddModuleOptions(CLI::App& command, HostOptions& options) {
  AddModule(command, options);
  AddNumber(command, "--trace", options.traceLevel, "LEVEL",
            "Trace level of the module, 1 (errors) to 5 (everything), 0: none.\n"
            "Lines go to standard error. Without it the files below\n"
            "/etc/orvane/CorvistaSuite/TraceConfig tell",
            CLI::Range(0U, HIGHEST_TRACE_LEVEL));
}

void ListRequests() {
  for (const RequestName& request : REQUEST_NAMES) {
    WriteLine(request.word);
  }
  throw CLI::Success();
}

std::string DescribeRequests() {
  const auto line = [](const std::string& word, const std::string& meaning) {
    return word + std::string(REQUEST_WIDTH - word.size(), ' ') + meaning;
  };
  std::string lines;
  for (const RequestName& request : REQUEST_NAMES) {
    lines += line(request.word, request.question) + "\n";
  }
  return lines + line("transfer=NAME", "the same, and how the copy is named") + "\n" +
         line("@FILE", "each command of the JSON record in the file");
}

void AddRun(CLI::App& app, HostOptions& options) {
  CLI::App& run = *app.add_subcommand(
      "run", "Starts the module, asks the requests one after the other, and stops it");
  AddModuleOptions(run, options);
  AddNumber(run, "--cabinet", options.cabinet, "NUMBER", "Number of the server cabinet",
            CLI::Range(0U, UINT32_MAX));
  run.add_option("--agent-type", options.agentType, "Kind of agent to play; 5: agentless service")
      ->option_text("NUMBER");
  run.add_option("--bmc", options.bmcDirectory, "Directory that stands for the BMC")
      ->type_name("DIR");
  AddNumber(run, "--timeout", options.timeLimit, "SECONDS",
            "How long to wait for each final answer, also told to the module; no limit by default",
            CLI::Range(1U, LONGEST_TIME_LIMIT));
  run.add_flag("--json", options.isJson, "Print each answer as a JSON object on one line");
  run.add_flag_callback("--list", ListRequests, "Print the words for requests, one on a line");
  run.add_option("REQUEST", options.requests, DescribeRequests())->required()->option_text("...");
}

void AddInfo(CLI::App& app, HostOptions& options) {
  CLI::App& info = *app.add_subcommand("info", "Shows the module's name and identification record");
  AddModuleOptions(info, options);
  info.add_flag("--json", options.isJson, "Print a JSON object");
}

void AddSetup(CLI::App& app, HostOptions& options) {
  CLI::App& setup = *app.add_subcommand("setup", "Has the module run an installer's action");
  AddModuleOptions(setup, options);
  setup.add_flag("--json", options.isJson, "Print a JSON object");
  setup
      .add_option("ACTION", options.action,
                  std::string("backup, restore and convert do nothing; cleanup removes the archive "
                              "and ") +
                      COLLECTOR_DIRECTORY)
      ->required()
      ->option_text(" ")
      ->check(CLI::IsMember({"backup", "restore", "convert", "cleanup"}));
}

void AddDoctor(CLI::App& app, HostOptions& options) {
  CLI::App& doctor =
      *app.add_subcommand("doctor", "Looks for what keeps this machine from creating an archive");
  AddModule(doctor, options);
  doctor.add_flag("--json", options.isJson, "Print a JSON object");
}

void AddDemo(CLI::App& app, HostOptions& options) {
  CLI::App& demo = *app.add_subcommand(
      "demo",
      "Shows the whole path of an archive, with a sample collector and in a private file system");
  AddModuleOptions(demo, options);
  demo.add_option("--collector", options.collector, "Install this program as the collector")
      ->type_name("FILE");
}

void AddGuard(CLI::App& app, HostOptions& options) {
  CLI::App& guard = *app.add_subcommand("guard", "Puts a guard before the collector, or shows it");
  guard
      .add_option("ACTION", options.action,
                  "on: agents start the guard, which starts the collector; off: as it was before; "
                  "status: whether it is on, and what it protects on this machine")
      ->required()
      ->check(CLI::IsMember({"on", "off", "status"}));
}

void AddHistory(CLI::App& app, HostOptions& options) {
  CLI::App& history =
      *app.add_subcommand("history", "Shows the runs of the collector under the guard");
  history.add_flag("--json", options.isJson, "Print each run as a JSON object on one line");
}

void AddInspect(CLI::App& app, HostOptions& options) {
  CLI::App& inspect = *app.add_subcommand(
      "inspect", "Shows what is in an archive, and whether it is whole and fits into a BMC");
  inspect.add_option("ARCHIVE", options.archive, "The archive; by default the one of this machine");
  inspect.add_option("--limit", options.sizeLimit, "What the BMC takes; 20 MiB by default")
      ->type_name("MIB")
      ->check(CLI::Range(1U, LARGEST_LIMIT));
  inspect.add_flag("--json", options.isJson, "Print a JSON object");
}

void AddTrace(CLI::App& app, HostOptions& options) {
  CLI::App& trace =
      *app.add_subcommand("trace", "Shows or changes the module's trace configuration");
  trace.require_subcommand(1);
  trace.add_subcommand("show", "Shows the settings and where they come from");
  CLI::App& set = *trace.add_subcommand("set", "Sets the trace level");
  set.add_option("LEVEL", options.number, "1 (errors) to 5 (everything), 0: none")
      ->required()
      ->option_text(" ")
      ->check(CLI::Range(0U, HIGHEST_TRACE_LEVEL));
  trace.add_subcommand("off", "Switches tracing off");
  CLI::App& dynamic = *trace.add_subcommand("dynamic", "Sets how often agents look for changes");
  dynamic.add_option("SECONDS", options.number, "0: never")
      ->required()
      ->option_text(" ")
      ->check(CLI::Range(0U, LONGEST_INTERVAL));
}

}  // namespace

std::optional<int> ReadCommandLine(int argumentCount, char** arguments, HostOptions& options) {
  CLI::App app(DESCRIPTION, "em_host");
  app.footer(EXIT_CODES);
  app.set_version_flag("--version", "em_host " EM_TALVOR_VERSION);
  app.failure_message(ExplainMistake);
  app.require_subcommand(1);
  AddRun(app, options);
  AddInfo(app, options);
  AddSetup(app, options);
  AddTrace(app, options);
  AddDoctor(app, options);
  AddGuard(app, options);
  AddHistory(app, options);
  AddInspect(app, options);
  AddDemo(app, options);
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : EX_USAGE;
  }
  const CLI::App& command = *app.get_subcommands().front();
  options.command = command.get_name();
  if (options.command == "trace") {
    options.action = command.get_subcommands().front()->get_name();
  }
  if (options.module.empty()) {
    options.module = InstalledModule();
  }
  return std::nullopt;
}
