#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/trace_session.h"

// A line, and the lowest level at which it is written.
struct LevelLine {
  uint32_t level;
  std::string text;
};

// Runs `action` with tracing off and at each level from 1 to 5, and expects exactly the lines of
// that level, in that order; none while it is off. `texts` reads them from the session. The action
// may take the session, to clear it after its preparations.
template <typename Action>
void ExpectLines(const std::vector<LevelLine>& lines, const Action& action,
                 const std::function<std::vector<std::string>(const TraceSession&)>& texts =
                     &TraceSession::Texts) {
  for (uint32_t level = 0; level <= 5; ++level) {
    std::vector<std::string> expected;
    for (const LevelLine& line : lines) {
      if (line.level <= level) {
        expected.push_back(line.text);
      }
    }
    TraceSession session(level);
    if constexpr (std::is_invocable_v<const Action&, TraceSession&>) {
      action(session);
    } else {
      action();
    }
    EXPECT_EQ(texts(session), expected) << "at level " << level;
  }
}
