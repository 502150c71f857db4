#include "tests/archive_module/module_trace.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

constexpr size_t SEPARATOR_LENGTH = 90;
constexpr std::string_view SERIALIZER_TAG = "CTaskSerializer";
constexpr std::array<std::string_view, 4> MODULE_TAGS = {"EM_TALVOR", "EM DLL", "###", "---"};

bool HasModuleTag(std::string_view line) {
  line.remove_prefix(std::min(line.find_first_not_of('\n'), line.size()));
  return line.empty() || std::any_of(MODULE_TAGS.begin(), MODULE_TAGS.end(),
                                     [&](std::string_view tag) { return line.starts_with(tag); });
}

bool IsOfSerializer(const TraceLine& line) {
  return line.text.find(SERIALIZER_TAG) != std::string::npos;
}

// Replaces the number between the two strings, if there is one, by `stand`.
void Replace(std::string& text, std::string_view before, std::string_view after,
             std::string_view stand) {
  const size_t found = text.find(before);
  if (found == std::string::npos) {
    return;
  }
  const size_t begin = found + before.size();
  const size_t end = text.find_first_not_of("0123456789", begin);
  if (end != begin && end == text.find(after, begin)) {
    text.replace(begin, end - begin, stand);
  }
}

std::string WithoutWhatDiffers(std::string text) {
  Replace(text, "(#", ")", "<pid>");
  Replace(text, "duration:  ", " seconds", "<seconds>");
  return text;
}

}  // namespace

std::string SeparatorLine() { return std::string(SEPARATOR_LENGTH, '-'); }

LineFilter LinesOfThisThread() {
  return [thread = std::this_thread::get_id()](const TraceLine& line) {
    return line.thread == thread && (HasModuleTag(line.text) || IsOfSerializer(line));
  };
}

LineFilter LinesOfTheWorker() {
  return [thread = std::this_thread::get_id()](const TraceLine& line) {
    return line.thread != thread && HasModuleTag(line.text);
  };
}

LineFilter LinesWith(const std::string& text) {
  return [text](const TraceLine& line) { return line.text.find(text) != std::string::npos; };
}

void ExpectLines(const LineFilter& filter, const std::vector<LevelLine>& lines,
                 const std::function<void(TraceSession& session)>& action) {
  ExpectLines(lines, action, [&filter](const TraceSession& session) {
    std::vector<std::string> texts;
    for (const TraceLine& line : session.Lines()) {
      if (filter(line)) {
        texts.push_back(WithoutWhatDiffers(line.text));
      }
    }
    return texts;
  });
}
