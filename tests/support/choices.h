#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The choices of one run of a scenario, and the next run to try: depth first through all runs whose
// choices cost at most a bound. A run repeats the choices before the one that differs, so whatever
// makes the same choices must find the same alternatives again.
//
// A run is written as the choices that are not the first alternative, "12.1-40.2": the 13th choice
// is alternative 1, the 41st is alternative 2. The run without any is "0".
//
// Not thread-safe.
class Choices {
 public:
  // All runs that cost at most `bound`.
  explicit Choices(int bound) : m_nBound(bound) {}

  // The one run that is written so. Throws std::invalid_argument.
  explicit Choices(const std::string& run);

  // Chooses between alternatives with these costs, the first of which is 0, and gives the index.
  // Throws std::logic_error when the run does not repeat what it did before.
  size_t Choose(const std::vector<int>& costs);

  // Turns to the same run again: the choices that it began with stay, the later ones are made anew.
  void Repeat();

  // Turns to the next run. False when all have been tried.
  bool Advance();

  std::string Describe() const;

 private:
  struct Choice {
    std::vector<int> costs;  // empty in a run that was written
    size_t chosen = 0;
    int spent = 0;  // before this choice
  };

  const int m_nBound;
  size_t m_nNext = 0;
  size_t m_nGiven = 0;  // how many choices the run began with
  std::vector<Choice> m_oRun;
};
