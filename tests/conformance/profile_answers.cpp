#include "tests/conformance/profile_answers.h"

#include "tests/platform/profile/profile_test_file.h"

namespace {

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string ReadFrom(const ProfileTestFile& file, const Reading& reading) {
  const ProfileAnswer answer =
      ReadProfile(file.Name(), reading.section, reading.key, reading.defaultValue, reading.size);
  const std::string count = std::to_string(answer.count) + ", ";
  if (answer.count >= answer.buffer.size()) {
    return count + "nothing stored";
  }
  EXPECT_EQ(answer.buffer[answer.count], '\0');
  return count + "\"" + Replaced(answer.text, std::string(1, '\0'), "\\0") + "\"";
}

void Fill(const ProfileTestFile& file, const std::optional<std::string>& text) {
  if (text) {
    file.SetText(*text);
  }
}

std::string Apply(const ProfileTestFile& file, const std::vector<Update>& updates) {
  std::string results;
  for (const Update& update : updates) {
    const uint32_t result =
        WritePrivateProfileString(update.section, update.key, update.value, file.Name());
    results += (results.empty() ? "" : ", ") + std::to_string(result);
  }
  return results;
}

}  // namespace

Answer Read(Reading reading, const std::optional<std::string>& text) {
  return [=] {
    const ProfileTestFile file;
    Fill(file, text);
    return ReadFrom(file, reading);
  };
}

std::string WithLineEnds(const std::string& text, const std::string& lineEnd) {
  return Replaced(text, "\n", lineEnd);
}

Answer FileAfter(const std::optional<std::string>& text, const std::vector<Update>& updates) {
  return [=]() -> std::string {
    const ProfileTestFile file;
    Fill(file, text);
    if (Apply(file, updates).find('0') != std::string::npos) {
      return "0";
    }
    return file.Exists() ? Replaced(file.Text(), "\n", "⏎") : "no file";
  };
}

Answer ResultsOf(const std::optional<std::string>& text, const std::vector<Update>& updates) {
  return [=] {
    const ProfileTestFile file;
    Fill(file, text);
    return Apply(file, updates);
  };
}

Answer ReadAfter(const std::optional<std::string>& text, const std::vector<Update>& updates,
                 Reading reading) {
  return [=] {
    const ProfileTestFile file;
    Fill(file, text);
    EXPECT_EQ(Apply(file, updates).find('0'), std::string::npos);
    return ReadFrom(file, reading);
  };
}
