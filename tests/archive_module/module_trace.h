#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/support/level_lines.h"
#include "tests/support/trace_session.h"

// The 90 hyphens that the module writes before and after its start and its stop.
std::string SeparatorLine();

// Selects lines of a session.
using LineFilter = std::function<bool(const TraceLine&)>;

// The lines of the entry points, the module and its serializer that the calling thread writes.
LineFilter LinesOfThisThread();
// The lines of the module that other threads write: the worker runs the jobs. Without those of the
// serializer, whose order depends on when the next task comes.
LineFilter LinesOfTheWorker();
// The lines of all threads that contain the string.
LineFilter LinesWith(const std::string& text);

// ExpectLines() for the lines that the filter selects. "<pid>" and "<seconds>" stand for what
// differs from run to run. The action must load the module itself, because tracing is configured on
// the first call.
void ExpectLines(const LineFilter& filter, const std::vector<LevelLine>& lines,
                 const std::function<void(TraceSession& session)>& action);
