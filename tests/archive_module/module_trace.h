#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/support/level_lines.h"
#include "tests/support/trace_session.h"

// 90 hyphens, as the module draws them around what it does when it starts and stops.
std::string SeparatorLine();

// Which lines of a session are looked at.
using LineFilter = std::function<bool(const TraceLine&)>;

// The lines of the entry points, the module and its serializer that the calling thread writes.
LineFilter LinesOfThisThread();
// The lines of the module that other threads write: the worker runs the jobs. Without those of the
// serializer, whose order depends on when the next task comes.
LineFilter LinesOfTheWorker();
// The lines that contain the text, of all threads.
LineFilter LinesWith(const std::string& text);

// ExpectLines() of the lines that the filter takes. In the texts "<pid>" and "<seconds>" stand for
// what differs from run to run. The action must load the module itself, because tracing is
// configured on the first use.
void ExpectLines(const LineFilter& filter, const std::vector<LevelLine>& lines,
                 const std::function<void(TraceSession& session)>& action);
