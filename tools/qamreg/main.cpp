// qamreg: the registry on the command line.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>
#include <iostream>
#include <new>
#include <optional>
#include <string>

#include "tools/command_line/mistake.h"
#include "tools/qamreg/commands.h"
#include "tools/qamreg/failure.h"

namespace {

constexpr char DESCRIPTION[] =
    "Shows and changes the registry below /etc/qamrel.\n"
    "KEY is a path such as HKLM\\SOFTWARE\\Talvor; quote it, or separate by \"/\".\n"
    "Stop the agent before a change: when it stores values, it saves its whole tree over yours.";
constexpr char EXIT_CODES[] =
    "Exit code: 0 done, 1 no such key, value or pointer, 2 anything else.";

// The words of the command line.
struct Words {
  std::string key;
  std::optional<std::string> optionalKey;
  std::optional<std::string> valueName;
  std::optional<std::string> data;
  std::string type = "REG_SZ";
  std::string pointerName;
  std::string file = "-";
  bool isRecursive = false;
};

void Add(const Words& words) {
  if (words.valueName) {
    AddValue(words.key, *words.valueName, words.type, words.data.value_or(""));
  } else {
    AddKey(words.key);
  }
}

void Delete(const Words& words) {
  if (words.valueName) {
    DeleteValue(words.key, *words.valueName);
  } else {
    DeleteKey(words.key);
  }
}

void Pointer(const Words& words) {
  if (words.optionalKey) {
    SetPointer(words.pointerName, *words.optionalKey);
  } else {
    ShowPointer(words.pointerName, std::cout);
  }
}

CLI::App* AddCommand(CLI::App& app, const std::string& name, const std::string& description,
                     const std::function<void()>& run) {
  CLI::App* command = app.add_subcommand(name, description);
  command->callback(run);
  return command;
}

void DescribeReading(CLI::App& app, Words& words) {
  CLI::App* query = AddCommand(app, "query", "Prints the values and subkeys of a key.", [&] {
    QueryKey(words.key, words.valueName, words.isRecursive, std::cout);
  });
  query->add_option("KEY", words.key)->required();
  query->add_option("-v", words.valueName, "Only the value of this name")->type_name("NAME");
  query->add_flag("-r", words.isRecursive, "Everything below the key too");

  CLI::App* exporting = AddCommand(app, "export", "Writes the registry, or one key of it, as text.",
                                   [&] { ExportKey(words.optionalKey, words.file); });
  exporting->add_option("KEY", words.optionalKey, "Without it, the whole registry");
  exporting->add_option("FILE", words.file, "Without it, or \"-\": standard output");
}

void DescribeChanging(CLI::App& app, Words& words) {
  CLI::App* add =
      AddCommand(app, "add", "Makes a key, or stores a value in it.", [&] { Add(words); });
  add->add_option("KEY", words.key)->required();
  CLI::Option* name = add->add_option("-v", words.valueName, "The value's name")->type_name("NAME");
  add->add_option("-t", words.type, "REG_SZ (if not given), REG_EXPAND_SZ, REG_BINARY or REG_DWORD")
      ->type_name("TYPE")
      ->needs(name);
  add->add_option("-d", words.data, "The value's data (if not given, none)")
      ->type_name("DATA")
      ->needs(name);

  CLI::App* deleting = AddCommand(
      app, "delete", "Deletes a key with all that is in it, or a value.", [&] { Delete(words); });
  deleting->add_option("KEY", words.key)->required();
  deleting->add_option("-v", words.valueName, "Only the value of this name")->type_name("NAME");

  CLI::App* importing = AddCommand(app, "import", "Adds the keys and values of a text.",
                                   [&] { ImportFile(words.file); });
  importing->add_option("FILE", words.file, "\"-\": standard input")->required();

  CLI::App* pointer =
      AddCommand(app, "pointer", "Shows or sets the key that an entry of the pointer key names.",
                 [&] { Pointer(words); });
  pointer->add_option("NAME", words.pointerName)->required();
  pointer->add_option("KEY", words.optionalKey, "The key that it is to name");
}

int Run(int argumentCount, char** arguments) {
  Words words;
  CLI::App app(DESCRIPTION, "qamreg");
  app.footer(EXIT_CODES);
  app.set_version_flag("--version", EM_TALVOR_VERSION);
  app.failure_message(ExplainMistake);
  app.require_subcommand(1);
  DescribeReading(app, words);
  DescribeChanging(app, words);
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_DONE : EXIT_FAILED;
  }
  if (!std::cout.flush()) {
    throw CFailure(EXIT_FAILED,
                   "The output could not be written: check where standard output goes.");
  }
  return EXIT_DONE;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    return Run(argumentCount, arguments);
  } catch (const CFailure& failure) {
    std::cout.flush();
    std::cerr << "qamreg: " << failure.what() << '\n';
    return failure.GetCode();
  } catch (const std::bad_alloc&) {
    std::cerr << "qamreg: There is not enough memory: end other programs, or raise the limit "
                 "(ulimit -v).\n";
    return EXIT_FAILED;
  } catch (const std::exception& failure) {
    std::cerr << "qamreg: This is a mistake of qamreg (" << failure.what()
              << "): report it with the command line that led to it.\n";
    return EXIT_FAILED;
  }
}
