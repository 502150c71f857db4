#pragma once

#include <string>

// Write a line without buffering: answers to standard output, what the user must know or do to
// standard error. The first throws CHostError when the line cannot be written.
void WriteLine(const std::string& line);
void WriteMessage(const std::string& sentence);

// Occupies the standard descriptors that the caller has closed, so that no other file gets them and
// receives what is meant for the user. Reading and writing them still fails.
void OccupyStandardFiles();
