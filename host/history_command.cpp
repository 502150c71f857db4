#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/commands.h"
#include "host/output.h"
#include "host/run_history.h"
#include "host/size_text.h"

namespace {

std::string Padded(const std::string& text, size_t width) {
  return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

std::string DurationText(const CollectorRun& run) {
  if (!run.duration) {
    return "-";
  }
  std::array<char, 32> text = {};
  snprintf(text.data(), text.size(), "%.1f s", *run.duration);
  return text.data();
}

std::string SizeText(const std::optional<int64_t>& size) {
  return size ? MebibytesText(*size) : "-";
}

// "2026-11-22 03:10:29" of 2026-11-22T03:10:29.123Z.
std::string StartText(const CollectorRun& run) {
  std::string text = run.start.substr(0, run.start.find('.'));
  const size_t separator = text.find('T');
  if (separator != std::string::npos) {
    text[separator] = ' ';
  }
  return text;
}

void Print(const CollectorRun& run) {
  WriteLine(StartText(run) + Padded(DurationText(run), 11) + Padded(SizeText(run.size), 13) +
            Padded(SizeText(run.memory), 13) + "  " + ExplainRunEnd(run));
}

}  // namespace

int ShowHistory(const HostOptions& options) {
  const std::vector<CollectorRun> runs = ReadRunHistory();
  if (options.isJson) {
    for (const CollectorRun& run : runs) {
      WriteLine(run.line);
    }
    return EXIT_SUCCESS;
  }
  if (runs.empty()) {
    WriteLine("No run of the collector is known. The guard keeps them: \"em_host guard on\".");
    return EXIT_SUCCESS;
  }
  WriteLine("start (UTC)             duration      archive       memory  end");
  for (const CollectorRun& run : runs) {
    Print(run);
  }
  return EXIT_SUCCESS;
}
