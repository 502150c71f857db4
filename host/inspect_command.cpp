#include <sysexits.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "archive_module/collector_files.h"
#include "archive_module/names.h"
#include "host/archive_contents.h"
#include "host/commands.h"
#include "host/guard_place.h"
#include "host/host_error.h"
#include "host/json_line.h"
#include "host/output.h"
#include "host/program_output.h"
#include "host/size_text.h"

namespace fs = std::filesystem;

namespace {

// What was found of an archive.
struct Inspection {
  std::string path;
  std::vector<ArchiveMember> members;
  int64_t size = 0;   // bytes
  int64_t limit = 0;  // bytes
  std::string checksum;
  std::string expected;  // from the file beside the archive; empty: there is none

  bool Fits() const { return size <= limit; }
  bool IsSealed() const { return !expected.empty(); }
  bool IsAsSealed() const { return expected == checksum; }
  bool IsRight() const { return !members.empty() && Fits() && (!IsSealed() || IsAsSealed()); }
};

std::string ArchiveToInspect(const HostOptions& options) {
  if (!options.archive.empty()) {
    return options.archive;
  }
  std::string directory;
  if (!GetDataDir(directory)) {
    throw CHostError(EX_NOINPUT,
                     "The registry does not tell where the archive is: name it, or see \"em_host "
                     "doctor\".");
  }
  return directory + ARCHIVE_FILE;
}

// The first word of a line of sha256sum.
std::string FirstWord(const std::string& line) { return line.substr(0, line.find_first_of(" \n")); }

Inspection Inspect(const std::string& path, uint32_t limit) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) {
    throw CHostError(EX_NOINPUT, "There is no archive " + path +
                                     ": create one with \"em_host run create\", or name another.");
  }
  Inspection found;
  found.path = path;
  try {
    found.members = ListArchive(path);
  } catch (const CHostError& damaged) {
    throw CHostError(EX_DATAERR, damaged.what());
  }
  found.size = static_cast<int64_t>(fs::file_size(path, error));
  found.limit = limit * MEBIBYTE;
  // --zero: without it the line begins with "\" when the name needs escaping.
  found.checksum = FirstWord(ProgramOutput({"sha256sum", "--zero", "--", path}));
  std::ifstream file(path + CHECKSUM_ENDING);
  std::string line;
  if (std::getline(file, line)) {
    found.expected = FirstWord(line);
  }
  return found;
}

std::string ChecksumText(const Inspection& found) {
  if (!found.IsSealed()) {
    std::error_code error;
    const std::string file = found.path + CHECKSUM_ENDING;
    const std::string name = fs::path(file).filename();
    return found.checksum + (fs::exists(file, error)
                                 ? "; " + name + " cannot be read"
                                 : "; there is no " + name + " to compare with");
  }
  return found.checksum + (found.IsAsSealed()
                               ? ", as when it was created"
                               : "; it was " + found.expected +
                                     " when it was created: the file has changed since. Create "
                                     "another.");
}

void Print(const Inspection& found) {
  WriteLine(found.path);
  for (const ArchiveMember& member : found.members) {
    WriteLine("  " + member.name + ", " + std::to_string(member.size) + " bytes");
  }
  WriteLine("members   " + (found.members.empty() ? std::string("none: the archive is empty")
                                                  : std::to_string(found.members.size())));
  WriteLine("size      " + std::to_string(found.size) + " bytes (" + MebibytesText(found.size) +
            (found.Fits() ? "), fits into " : "), does not fit into ") +
            std::to_string(found.limit / MEBIBYTE) + " MiB");
  WriteLine("sha256    " + ChecksumText(found));
}

void PrintJson(const Inspection& found) {
  CJsonLine line;
  line.AddText("archive", found.path);
  line.AddNumber("size", found.size);
  line.AddNumber("limit", found.limit);
  line.AddBool("fits", found.Fits());
  line.AddText("sha256", found.checksum);
  if (found.IsSealed()) {
    line.AddBool("sealed", found.IsAsSealed());
  } else {
    line.AddNull("sealed");
  }
  line.BeginArray("members");
  for (const ArchiveMember& member : found.members) {
    line.BeginObject();
    line.AddText("name", member.name);
    line.AddNumber("size", member.size);
    line.EndObject();
  }
  line.EndArray();
  WriteLine(line.Finish());
}

}  // namespace

int InspectArchive(const HostOptions& options) {
  const Inspection found = Inspect(ArchiveToInspect(options), options.sizeLimit);
  if (options.isJson) {
    PrintJson(found);
  } else {
    Print(found);
  }
  return found.IsRight() ? EXIT_SUCCESS : EX_DATAERR;
}
