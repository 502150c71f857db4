// The commands that write and read files in the registry's format.

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include "platform/registry/registry_node.h"
#include "platform/registry/registry_path.h"
#include "platform/registry/registry_text.h"
#include "tools/qamreg/commands.h"
#include "tools/qamreg/failure.h"
#include "tools/qamreg/import_text.h"
#include "tools/qamreg/key_path.h"
#include "tools/qamreg/registry_edit.h"
#include "tools/qamreg/text_file.h"

namespace {

constexpr char STANDARD_STREAM[] = "-";
constexpr char NAME_AN_EXPORT[] = "name a file that \"qamreg export\" wrote";

// The key with the headers of the keys above it, of which nothing else is written.
std::string WriteKey(CRegistry& registry, const CKeyPath& path) {
  OpenExisting(registry, path);
  std::string text;
  std::string ends = "\n";  // of the top
  CRegistryPath components(path.Text());
  for (std::string_view name = components.Next(); !name.empty(); name = components.Next()) {
    text.append("[").append(name).append("]\n");
    ends += '\n';
  }
  text += WriteRegistryText(*registry.GetKey().GetNode());
  return text + ends.substr(1);  // the innermost key has written its own end
}

std::string WriteAll(CRegistry& registry) {
  registry.Open("", nullptr);
  return WriteRegistryText(*registry.GetKey().GetNode());
}

std::string ReadInput(const std::string& file) {
  if (file == STANDARD_STREAM) {
    return {std::istreambuf_iterator<char>(std::cin), {}};
  }
  return ReadTextFile(file, NAME_AN_EXPORT);
}

}  // namespace

void ExportKey(const std::optional<std::string>& key, const std::string& file) {
  CheckRegistryFile();
  CRegistry registry;
  const std::string text = key ? WriteKey(registry, CKeyPath(*key)) : WriteAll(registry);
  if (file == STANDARD_STREAM) {
    std::cout << text;
  } else if (!(std::ofstream(file, std::ios::binary) << text << std::flush)) {
    throw CFailure(EXIT_FAILED, file + " cannot be written (" + strerror(errno) +
                                    "): name a file that can, or \"-\" for standard output.");
  }
}

void ImportFile(const std::string& file) {
  const std::vector<KeyContent> keys = ParseImport(ReadInput(file));
  if (keys.empty()) {
    throw CFailure(EXIT_FAILED,
                   std::string("There is no key in the text to import: ") + NAME_AN_EXPORT + ".");
  }
  CRegistryEdit edit;
  edit.Store(keys);
  edit.Save();
}
