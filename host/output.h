#pragma once

#include <string>

// Write a line at once: an answer to standard output, what the user has to know or do to standard
// error. The first throws CHostError when the line cannot be written.
void WriteLine(const std::string& line);
void WriteMessage(const std::string& sentence);

// Occupies the descriptors of standard files that the caller has closed, so that no other file gets
// them and with it what is meant for the user. Reading and writing them still fails.
void OccupyStandardFiles();
