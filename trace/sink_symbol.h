#pragma once

#include "trace/trace_sink.h"

// The trace sink at `symbol`, the address of a symbol of the process; null when something else is
// there: a function, a variable of another kind, an object whose constructor has not run yet. Calls
// none of its operations, and reads only loaded segments. Any thread may call.
ITraceSink* SinkAtSymbol(void* symbol);
