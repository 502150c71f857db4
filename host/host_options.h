#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What the command line asks for. Each command looks at what concerns it.
struct HostOptions {
  std::string command;  // "run", "info", "setup", "demo", "trace", "doctor"

  std::string module;
  std::optional<uint32_t> traceLevel;
  bool isJson = false;

  std::vector<std::string> requests;
  std::optional<uint32_t> cabinet;
  uint32_t agentType = 0;
  std::string bmcDirectory;
  std::optional<uint32_t> timeLimit;  // seconds

  std::string action;     // of "setup" and "trace"
  uint32_t number = 0;    // of "trace": the level, or seconds
  std::string collector;  // the file that "demo" installs; empty: the sample
};
