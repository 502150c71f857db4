#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What the command line asks for. Each command looks at what concerns it.
struct HostOptions {
  std::string command;  // "run", "info", "setup", "demo", "trace", "doctor", "guard", "history",
                        // "inspect"

  std::string module;
  std::optional<uint32_t> traceLevel;
  bool isJson = false;

  std::vector<std::string> requests;
  std::optional<uint32_t> cabinet;
  uint32_t agentType = 0;
  std::string bmcDirectory;
  std::optional<uint32_t> timeLimit;  // seconds

  std::string action;     // of "setup", "trace" and "guard"
  uint32_t number = 0;    // of "trace": the level, or seconds
  std::string collector;  // the file that "demo" installs; empty: the sample

  std::string archive;      // that "inspect" looks at; empty: the one of this machine
  uint32_t sizeLimit = 20;  // of "inspect", in MiB: what BMCs commonly take
};
