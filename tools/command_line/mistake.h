#pragma once

#include <string>

namespace CLI {
class App;
class Error;
}  // namespace CLI

// A line for a mistake on the command line: the program's name, what is wrong, and the help to look
// at. For CLI::App::failure_message().
std::string ExplainMistake(const CLI::App* app, const CLI::Error& mistake);
