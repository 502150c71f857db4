#include "tests/support/choices.h"

#include <sstream>
#include <stdexcept>

Choices::Choices(const std::string& run) : m_nBound(0) {
  std::istringstream text(run == "0" ? "" : run);
  size_t position = 0;
  size_t chosen = 0;
  char dot = 0;
  char dash = 0;
  while (text >> position >> dot >> chosen) {
    if (dot != '.' || position < m_oRun.size()) {
      throw std::invalid_argument("not a schedule: " + run);
    }
    m_oRun.resize(position + 1);
    m_oRun.back().chosen = chosen;
    text >> dash;
  }
  if (!text.eof()) {
    throw std::invalid_argument("not a schedule: " + run);
  }
  m_nGiven = m_oRun.size();
}

size_t Choices::Choose(const std::vector<int>& costs) {
  if (m_nNext == m_oRun.size()) {
    const int spent =
        m_oRun.empty() ? 0 : m_oRun.back().spent + m_oRun.back().costs[m_oRun.back().chosen];
    m_oRun.push_back({costs, 0, spent});
  }
  Choice& choice = m_oRun[m_nNext];
  if (choice.costs.empty()) {
    choice.costs = costs;
  }
  if (choice.costs != costs || choice.chosen >= costs.size()) {
    throw std::logic_error("the run does not repeat itself at choice " + std::to_string(m_nNext));
  }
  ++m_nNext;
  return choice.chosen;
}

void Choices::Repeat() {
  m_oRun.resize(m_nGiven);
  m_nNext = 0;
}

bool Choices::Advance() {
  m_nNext = 0;
  while (!m_oRun.empty()) {
    Choice& last = m_oRun.back();
    while (++last.chosen < last.costs.size()) {
      if (last.spent + last.costs[last.chosen] <= m_nBound) {
        m_nGiven = m_oRun.size();
        return true;
      }
    }
    m_oRun.pop_back();
  }
  return false;
}

std::string Choices::Describe() const {
  std::string text;
  for (size_t position = 0; position < m_oRun.size(); ++position) {
    if (m_oRun[position].chosen != 0) {
      text += (text.empty() ? "" : "-") + std::to_string(position) + "." +
              std::to_string(m_oRun[position].chosen);
    }
  }
  return text.empty() ? "0" : text;
}
