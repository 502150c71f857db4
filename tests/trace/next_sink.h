#pragma once

// A library of its own that exports a sink "Debug" after that of the program in search order.

void SetNextSinkValid(bool isValid);

// Makes the sink's test of validity throw.
void SetNextSinkThrowing(bool isThrowing);

// The number of lines, plain or not, that came since the last call.
int TakeLinesOfNextSink();
