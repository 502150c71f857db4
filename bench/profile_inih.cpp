#include <benchmark/benchmark.h>
#include <ini.h>

#include <cstring>

#include "bench/files.h"
#include "bench/profile_texts.h"

namespace {

struct Question {
  std::string section;
  std::string key;
  std::string value;
};

int Look(void* argument, const char* section, const char* name, const char* value) {
  auto* question = static_cast<Question*>(argument);
  if (question->section == section && question->key == name) {
    question->value = value;
  }
  return 1;
}

void Read(benchmark::State& state) {
  const BenchFile file(ProfileText(PROFILE_LINES));
  for (auto _ : state) {
    Question question{LastProfileSection(PROFILE_LINES), ProfileKey(PROFILE_LINES - 1), {}};
    Require(ini_parse(file.GetPath().c_str(), Look, &question) == 0, "ini_parse");
    Require(!question.value.empty(), "inih");
  }
}
BENCHMARK(Read)->Name("profile_read/inih")->UseRealTime();

}  // namespace
