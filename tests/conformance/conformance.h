#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

// Tables of what Windows answers to the calls that the platform layer stands in for, and of what
// the platform layer answers. They are tested, and printed as docs/windows.md.

// A difference from Windows that is wanted.
struct Deliberate {
  std::string ours;
  const char* why;  // one clause
};

// One question.
struct ConformanceCase {
  const char* asked;                 // starts with a letter; unique in its table
  std::function<std::string()> ask;  // gives our answer
  std::string windows;
  std::optional<Deliberate> differs = {};  // nothing: we answer as Windows does

  const std::string& Ours() const { return differs ? differs->ours : windows; }
};

using ConformanceCases = std::vector<ConformanceCase>;

// The tables. None of them keeps anything but what is said here: each question makes its own world.
ConformanceCases ProfileReadingCases();
ConformanceCases ProfileListCases();
ConformanceCases ProfileWritingCases();
ConformanceCases EventCases();
ConformanceCases EventWaiterCases();
ConformanceCases EventHandleCases();
ConformanceCases RegistryKeyCases();
ConformanceCases RegistryValueCases();
ConformanceCases RegistryStorageCases();

// The whole text of docs/windows.md.
std::string ConformancePage();
