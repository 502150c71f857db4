#include "tools/command_line/mistake.h"

#include <CLI/CLI.hpp>
#include <string_view>
#include <vector>

namespace {

constexpr std::string_view VALUE_IS_MISSING = " missing";

std::string Quoted(const std::string& word) { return '"' + word + '"'; }

// What was given where a command or an argument was expected.
std::string ExplainWord(const std::string& word, const char* expected) {
  return Quoted(word) + " is no " + (word.starts_with('-') ? "option" : expected);
}

// `command` is the innermost one that was given, `words` are those that nothing consumed.
std::string Explain(const CLI::App& command, const std::vector<std::string>& words,
                    const CLI::Error& mistake) {
  if (command.get_require_subcommand_min() > 0) {
    return words.empty() ? "a command is missing" : ExplainWord(words.front(), "command");
  }
  std::string what = mistake.what();
  const auto kind = static_cast<CLI::ExitCodes>(mistake.get_exit_code());
  if (kind == CLI::ExitCodes::ExtrasError && !words.empty()) {
    return words.front().starts_with('-') ? ExplainWord(words.front(), "")
                                          : Quoted(words.front()) + " is one word too many";
  }
  if (kind == CLI::ExitCodes::ArgumentMismatch && what.ends_with(VALUE_IS_MISSING)) {
    return what.substr(0, what.find(':')) + " needs a value";
  }
  return what;
}

}  // namespace

std::string ExplainMistake(const CLI::App* app, const CLI::Error& mistake) {
  std::string help = app->get_name();
  const CLI::App* command = app;
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    help += " " + command->get_name();
  }
  return app->get_name() + ": " + Explain(*command, app->remaining(true), mistake) + ": see \"" +
         help + " --help\".\n";
}
