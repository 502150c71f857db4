// The development host: plays the server-management agent for an extension module.

#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <system_error>

#include "host/command_line.h"
#include "host/commands.h"
#include "host/host_error.h"
#include "host/installation.h"
#include "host/output.h"
#include "host/private_machine.h"

namespace {

// Tracing is configured when a module is first used; the environment overrides the files.
void SetTraceLevel(const HostOptions& options) {
  if (options.traceLevel) {
    setenv("CV_LOG_DEBUG_LEVEL", std::to_string(*options.traceLevel).c_str(), 1);
  }
}

int RunCommand(const HostOptions& options, char** arguments) {
  SetTraceLevel(options);
  if (options.command == "run") {
    return RunRequests(options);
  }
  if (options.command == "info") {
    return ShowInfo(options);
  }
  if (options.command == "setup") {
    return RunSetupAction(options);
  }
  if (options.command == "trace") {
    return RunTraceAction(options);
  }
  if (options.command == "doctor") {
    return RunDoctor(options);
  }
  if (options.command == "guard") {
    return RunGuardAction(options);
  }
  if (options.command == "history") {
    return ShowHistory(options);
  }
  if (options.command == "inspect") {
    return InspectArchive(options);
  }
  EnterPrivateMachine(arguments);
  return ShowDemo(options);
}

}  // namespace

int main(int argumentCount, char** arguments) {
  OccupyStandardFiles();
  HostOptions options;
  if (const auto exitCode = ReadCommandLine(argumentCount, arguments, options)) {
    return *exitCode;
  }
  try {
    return RunCommand(options, arguments);
  } catch (const CHostError& error) {
    WriteMessage(error.what());
    return error.GetExitCode();
  } catch (const std::bad_alloc&) {
    WriteMessage("There is not enough memory: end other programs, or raise the limit (ulimit -v).");
    return EX_OSERR;
  } catch (const std::system_error& error) {
    WriteMessage(std::string("The system refuses something (") + error.what() +
                 "): look whether processes, file descriptors and space are left.");
    return EX_OSERR;
  } catch (const std::exception& error) {
    WriteMessage(std::string("This is a mistake of em_host (") + error.what() +
                 "): report it with the command line that led to it.");
    return EX_SOFTWARE;
  }
}
