#include <benchmark/benchmark.h>
#include <glib.h>

#include "bench/files.h"
#include "bench/profile_texts.h"

namespace {

void Read(benchmark::State& state) {
  const BenchFile file(ProfileText(PROFILE_LINES));
  const std::string key = ProfileKey(PROFILE_LINES - 1);
  const std::string section = LastProfileSection(PROFILE_LINES);
  for (auto _ : state) {
    GKeyFile* keys = g_key_file_new();
    g_key_file_load_from_file(keys, file.GetPath().c_str(), G_KEY_FILE_NONE, nullptr);
    char* value = g_key_file_get_string(keys, section.c_str(), key.c_str(), nullptr);
    Require(value != nullptr, "GKeyFile");
    g_free(value);
    g_key_file_free(keys);
  }
}
BENCHMARK(Read)->Name("profile_read/GKeyFile")->UseRealTime();

void Write(benchmark::State& state) {
  const BenchFile file(ProfileText(PROFILE_LINES));
  const std::string key = ProfileKey(PROFILE_LINES / 2);
  const std::string section = ProfileSection(PROFILE_LINES / 2);
  bool isOdd = false;
  for (auto _ : state) {
    isOdd = !isOdd;
    GKeyFile* keys = g_key_file_new();
    g_key_file_load_from_file(keys, file.GetPath().c_str(), G_KEY_FILE_KEEP_COMMENTS, nullptr);
    g_key_file_set_string(keys, section.c_str(), key.c_str(), isOdd ? "odd" : "another value");
    gsize length = 0;
    char* text = g_key_file_to_data(keys, &length, nullptr);
    WriteWhole(file.GetPath().c_str(), {text, length}, false);
    g_free(text);
    g_key_file_free(keys);
  }
}
BENCHMARK(Write)->Name("profile_write/GKeyFile")->UseRealTime();

}  // namespace
