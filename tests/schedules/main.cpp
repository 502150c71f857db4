// Tries the schedules of the scenarios:
//
//   schedules BOUND [SCENARIO...]     every schedule with at most BOUND preemptions
//   schedules --replay SCHEDULE       one schedule as a report names it, with its trace lines
//
// Ends with 0 when every run was right, and with 1 at the first scenario that has one that was not.
// Each scenario has a process of its own.

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>

#include "tests/schedules/explorer.h"
#include "tests/schedules/modelled_calls.h"

namespace {

const ScenarioEntry& FindScenario(const std::string& name) {
  for (const ScenarioEntry& scenario : AllScenarios()) {
    if (scenario.name == name) {
      return scenario;
    }
  }
  throw std::invalid_argument("no such scenario: " + name);
}

// One thread runs at a time anyway, and it is handed the baton fastest where the last one ran.
void StayOnOneProcessor(size_t number) {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  sched_getaffinity(0, sizeof(allowed), &allowed);
  size_t wanted = number % static_cast<size_t>(std::max(CPU_COUNT(&allowed), 1));
  for (size_t processor = 0; processor < CPU_SETSIZE; ++processor) {
    if (CPU_ISSET(processor, &allowed) && wanted-- == 0) {
      cpu_set_t one;
      CPU_ZERO(&one);
      CPU_SET(processor, &one);
      sched_setaffinity(0, sizeof(one), &one);
      return;
    }
  }
}

[[noreturn]] void ExploreHere(const ScenarioEntry& scenario, int bound, size_t processor) {
  StayOnOneProcessor(processor);
  const auto begin = std::chrono::steady_clock::now();
  const int64_t count = Explore(scenario, bound);
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  printf("%-32s %8ld schedules %7.1f s\n", scenario.name.c_str(), static_cast<long>(count),
         time.count());
  fflush(nullptr);
  _exit(0);
}

// Waits for one of the children, which occupy processors. Returns whether its runs were right.
bool WaitForOne(std::map<pid_t, std::pair<size_t, std::string>>& children) {
  int status = 0;
  const pid_t pid = wait(&status);
  const std::string name = children[pid].second;
  children.erase(pid);
  if (WIFSIGNALED(status)) {
    fprintf(stderr, "%s: ended by signal %d\n", name.c_str(), WTERMSIG(status));
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool ExploreAll(const std::vector<ScenarioEntry>& scenarios, int bound) {
  const auto most = static_cast<size_t>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
  std::map<pid_t, std::pair<size_t, std::string>> children;
  bool areRight = true;
  for (const ScenarioEntry& scenario : scenarios) {
    if (children.size() == most) {
      areRight = WaitForOne(children) && areRight;
    }
    if (!areRight) {
      break;
    }
    size_t processor = 0;
    while (std::any_of(children.begin(), children.end(),
                       [&](const auto& child) { return child.second.first == processor; })) {
      ++processor;
    }
    const pid_t pid = fork();
    if (pid == 0) {
      ExploreHere(scenario, bound, processor);
    }
    children[pid] = {processor, scenario.name};
  }
  while (!children.empty()) {
    areRight = WaitForOne(children) && areRight;
  }
  return areRight;
}

int Run(int count, char** arguments) {
  if (count == 3 && strcmp(arguments[1], "--replay") == 0) {
    const std::string text = arguments[2];
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
      throw std::invalid_argument("not a schedule: " + text);
    }
    Replay(FindScenario(text.substr(0, colon)), text.substr(colon + 1));
    puts("right");
    return 0;
  }
  if (count < 2 || arguments[1][0] < '0' || arguments[1][0] > '9') {
    throw std::invalid_argument("usage: schedules BOUND [SCENARIO...] | --replay SCHEDULE");
  }
  std::vector<ScenarioEntry> wanted;
  for (int index = 2; index < count; ++index) {
    wanted.push_back(FindScenario(arguments[index]));
  }
  return ExploreAll(wanted.empty() ? AllScenarios() : wanted, atoi(arguments[1])) ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
  setlinebuf(stdout);
  ModelledCalls::Install();
  try {
    const int result = Run(count, arguments);
    fflush(nullptr);
    _exit(result);
  } catch (const std::exception& failure) {
    fprintf(stderr, "schedules: %s\n", failure.what());
    return 2;
  }
}
