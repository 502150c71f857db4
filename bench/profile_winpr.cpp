#include <benchmark/benchmark.h>
#include <winpr/ini.h>

#include "bench/files.h"
#include "bench/profile_texts.h"

namespace {

void Read(benchmark::State& state) {
  const BenchFile file(ProfileText(PROFILE_LINES));
  const std::string key = ProfileKey(PROFILE_LINES - 1);
  const std::string section = LastProfileSection(PROFILE_LINES);
  for (auto _ : state) {
    wIniFile* ini = IniFile_New();
    Require(IniFile_ReadFile(ini, file.GetPath().c_str()) >= 0, "WinPR");
    Require(IniFile_GetKeyValueString(ini, section.c_str(), key.c_str()) != nullptr, "WinPR");
    IniFile_Free(ini);
  }
}
BENCHMARK(Read)->Name("profile_read/WinPR")->UseRealTime();

void Write(benchmark::State& state) {
  const BenchFile file(ProfileText(PROFILE_LINES));
  const std::string key = ProfileKey(PROFILE_LINES / 2);
  const std::string section = ProfileSection(PROFILE_LINES / 2);
  bool isOdd = false;
  for (auto _ : state) {
    isOdd = !isOdd;
    wIniFile* ini = IniFile_New();
    Require(IniFile_ReadFile(ini, file.GetPath().c_str()) >= 0, "WinPR");
    IniFile_SetKeyValueString(ini, section.c_str(), key.c_str(), isOdd ? "odd" : "another value");
    Require(IniFile_WriteFile(ini, file.GetPath().c_str()) >= 0, "WinPR");
    IniFile_Free(ini);
  }
}
BENCHMARK(Write)->Name("profile_write/WinPR")->UseRealTime();

}  // namespace
