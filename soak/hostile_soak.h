#pragma once

#include <chrono>
#include <cstdint>
#include <string>

// Runs the module in the hands of hostile hosts, see hostile_round.h, until the time is over, and
// at least three rounds. Prints the seed at the start and, at a finding or when the process dies,
// that of the round, with which the same round runs first. True when all was well.
bool RunHostileSoak(std::chrono::duration<double, std::ratio<60>> time, const std::string& module,
                    uint32_t seed);
