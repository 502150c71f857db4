// Runs a fuzz target on the inputs of a directory, one file each: what a fuzzer found once stays
// found.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// In a batch with the target it is declared already.
// NOLINTNEXTLINE(readability-redundant-declaration)
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::string> ListFiles(const char* directory) {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    paths.push_back(entry.path().string());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

// Exactly as large as the input, so that a sanitizer sees reads past its end.
std::vector<uint8_t> ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY\n", arguments[0]);
    return 2;
  }
  const std::vector<std::string> paths = ListFiles(arguments[1]);
  for (const std::string& path : paths) {
    std::fprintf(stderr, "%s\n", path.c_str());  // the last one is the one that fails
    const std::vector<uint8_t> input = ReadFile(path);
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  return paths.empty() ? 1 : 0;
}
