#include "soak/soak_sink.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string_view>
#include <utility>

#include "soak/draw.h"
#include "soak/throw_anything.h"
#include "tests/support/default_sink.h"

namespace {

constexpr std::array<std::string_view, 2> REFUSALS = {
    "\nCTaskSerializer     : ## ERROR! Task queue for priority %d is full",
    "\nCTaskSerializer     : Manager locked for Tasks at level %d. Task ignored!"};
constexpr std::string_view QUEUED =
    "\nCTaskSerializer     : Task with priority %d inserted into task queue!";
constexpr std::string_view JOB_FAILED =
    "\n\nCTaskSerializer     : ## EXCEPTION in OnTaskExecution()! ##";

constexpr size_t LONGEST_LINE = 4096;

std::atomic<uint64_t> g_nFailedJobs = 0;
std::atomic<uint32_t> g_nLinesPerThrow = 0;
std::atomic<uint32_t> g_nSeed = 0;
std::atomic<uint32_t> g_nThreads = 0;

thread_local SinkNotes t_oNotes;

bool ShallThrow() {
  thread_local CDraw draw(g_nSeed, ++g_nThreads);
  const uint32_t lines = g_nLinesPerThrow;
  return lines != 0 && draw.OneIn(lines);
}

}  // namespace

class CSoakSink final : public DefaultSink {
 public:
  [[gnu::format(printf, 2, 0)]] void Output(const char* format, va_list arguments,
                                            const char* /*moduleName*/) override {
    std::array<char, LONGEST_LINE> line;
    vsnprintf(line.data(), line.size(), format, arguments);
    for (const std::string_view refusal : REFUSALS) {
      t_oNotes.hasRefused = t_oNotes.hasRefused || refusal == format;
    }
    t_oNotes.hasQueued = t_oNotes.hasQueued || QUEUED == format;
    g_nFailedJobs += JOB_FAILED == format ? 1 : 0;
    if (ShallThrow()) {
      t_oNotes.hasThrown = true;
      ThrowAnything(line[0] == '\0' ? 0U : static_cast<unsigned char>(line[1]));
    }
  }
};

// The trace client of the module looks this name up.
[[gnu::visibility("default")]] CSoakSink Debug;

SinkNotes TakeSinkNotes() { return std::exchange(t_oNotes, {}); }

uint64_t CountFailedJobs() { return g_nFailedJobs; }

void SetSinkThrows(uint32_t lines, uint32_t seed) {
  g_nSeed = seed;
  g_nLinesPerThrow = lines;
}
