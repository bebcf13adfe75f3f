#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace algtrack {

/// Parses the arguments (without the program's name) and runs the command that they name. What is
/// wrong with them is said in one line, in words of our own, with the nearest name that is known
/// where one is not.
/// @throws std::runtime_error for wrong usage; what the command throws
void runCommandLine(CLI::App& app, std::vector<std::string> arguments);

/// The nearest of `names` by the letters that differ; empty if none is near.
std::string nearestOf(const std::string& name, const std::vector<std::string>& names);

}  // namespace algtrack
