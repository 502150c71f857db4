#pragma once

#include "trace/trace_sink.h"

// The trace sink at `symbol`, the address of a symbol of the process; null when something else is
// there: a function, a variable of another kind, an object whose constructor has not run yet. Calls
// nothing of it, and reads only memory that the process has loaded. Any thread may call.
ITraceSink* SinkAtSymbol(void* symbol);
