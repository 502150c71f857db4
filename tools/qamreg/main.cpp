// qamreg: the registry on the command line.

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
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
#include "tools/qamreg/registry_edit.h"

namespace {

constexpr char DESCRIPTION[] =
    "Shows and changes the registry below /etc/qamrel.\n"
    "Stop the agent before a change: when it stores values, it saves its whole tree over yours.";
constexpr char KEY_HELP[] =
    "Path of a key, such as 'HKLM\\SOFTWARE\\Talvor' in quotes, or HKLM/SOFTWARE/Talvor.\n"
    "It begins with HKEY_LOCAL_MACHINE (HKLM), HKEY_CURRENT_USER (HKCU), HKEY_USERS (HKU),\n"
    "HKEY_CLASSES_ROOT (HKCR) or HKEY_CURRENT_CONFIG (HKCC)";
constexpr char EXIT_CODES[] =
    "Exit code: 0 done, 1 no such key, value or pointer, 2 anything else.";

constexpr uint32_t LONGEST_WAIT = 86'400;  // seconds
constexpr char STANDARD_STREAM[] = "-";

// The words of the command line.
struct Words {
  std::string key;
  std::optional<std::string> optionalKey;
  std::optional<std::string> valueName;
  std::optional<std::string> data;
  std::string type = "REG_SZ";
  std::string pointerName;
  std::optional<std::string> file;
  bool isRecursive = false;
  bool isAll = false;
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

// With --all there is no key: its place is the file's.
void Export(const Words& words) {
  if (!words.isAll) {
    ExportKey(words.optionalKey, words.file.value_or(STANDARD_STREAM));
  } else if (words.file) {
    throw CFailure(
        EXIT_FAILED,
        "\"" + *words.file + "\" is one word too many: --all exports all keys, to one FILE.");
  } else {
    ExportKey(std::nullopt, words.optionalKey.value_or(STANDARD_STREAM));
  }
}

CLI::App* AddCommand(CLI::App& app, const std::string& name, const std::string& description,
                     const std::function<void()>& run) {
  CLI::App* command = app.add_subcommand(name, description);
  command->callback(run);
  return command;
}

void AddKeyArgument(CLI::App& command, std::string& key) {
  command.add_option("KEY", key, KEY_HELP)->required()->option_text(" ");
}

CLI::Option* AddName(CLI::App& command, Words& words, const std::string& description) {
  return command.add_option("-v", words.valueName, description)->option_text("NAME");
}

void AddWaitLimit(CLI::App& command) {
  command
      .add_option_function<uint32_t>(
          "--wait",
          [](const uint32_t& seconds) {
            CRegistryEdit::SetWaitLimit(std::chrono::seconds(seconds));
          },
          "How long to wait for another process that changes the registry; 30 if not given")
      ->option_text("SECONDS")
      ->check(CLI::Range(0U, LONGEST_WAIT));
}

void DescribeReading(CLI::App& app, Words& words) {
  CLI::App* query = AddCommand(app, "query", "Prints the values and subkeys of a key.", [&] {
    QueryKey(words.key, words.valueName, words.isRecursive, std::cout);
  });
  AddKeyArgument(*query, words.key);
  AddName(*query, words, "Only the value of this name");
  query->add_flag("-r", words.isRecursive, "Everything below the key too");

  CLI::App* exporting = AddCommand(app, "export", "Writes the registry, or one key of it, as text.",
                                   [&] { Export(words); });
  exporting
      ->add_option("KEY", words.optionalKey,
                   KEY_HELP + std::string(".\nWithout it, the whole registry"))
      ->option_text(" ");
  exporting->add_option("FILE", words.file, "Where to; without it, or \"-\": standard output")
      ->option_text(" ");
  exporting->add_flag("--all", words.isAll, "The whole registry; FILE stands in the place of KEY");
}

void DescribeChanging(CLI::App& app, Words& words) {
  CLI::App* add =
      AddCommand(app, "add", "Makes a key, or stores a value in it.", [&] { Add(words); });
  AddKeyArgument(*add, words.key);
  CLI::Option* name = AddName(*add, words, "The value's name");
  add->add_option("-t", words.type,
                  "With -v: REG_SZ (if not given), REG_EXPAND_SZ, REG_BINARY or REG_DWORD")
      ->option_text("TYPE")
      ->needs(name);
  add->add_option("-d", words.data, "With -v: the value's data (if not given, none)")
      ->option_text("DATA")
      ->needs(name);

  CLI::App* deleting = AddCommand(
      app, "delete", "Deletes a key with all that is in it, or a value.", [&] { Delete(words); });
  AddKeyArgument(*deleting, words.key);
  AddName(*deleting, words, "Only the value of this name");

  CLI::App* importing = AddCommand(app, "import", "Adds the keys and values of a text.",
                                   [&] { ImportFile(*words.file); });
  importing->add_option("FILE", words.file, "What \"export\" wrote; \"-\": standard input")
      ->required()
      ->option_text(" ");

  CLI::App* pointer =
      AddCommand(app, "pointer", "Shows or sets the key that an entry of the pointer key names.",
                 [&] { Pointer(words); });
  pointer->add_option("NAME", words.pointerName, "The component's entry, such as Talvor")
      ->required()
      ->option_text(" ");
  pointer
      ->add_option("KEY", words.optionalKey,
                   KEY_HELP + std::string(".\nThe entry is made to name it"))
      ->option_text(" ");
  for (CLI::App* command : {add, deleting, importing, pointer}) {
    AddWaitLimit(*command);
  }
}

int Run(int argumentCount, char** arguments) {
  Words words;
  CLI::App app(DESCRIPTION, "qamreg");
  app.footer(EXIT_CODES);
  app.set_version_flag("--version", "qamreg " EM_TALVOR_VERSION);
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
