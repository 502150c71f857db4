#pragma once

#include <string>

namespace CLI {
class App;
class Error;
}  // namespace CLI

// The line that explains a mistake on the command line: the program's name, what is wrong, and
// which help to read. For CLI::App::failure_message().
std::string ExplainMistake(const CLI::App* app, const CLI::Error& mistake);
