#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace algtrack {

/// Declares --body FILE, which may be given again.
inline CLI::Option* addBodyFiles(CLI::App& command, std::vector<std::string>& files) {
  constexpr int kMostBodies = 16;
  return command.add_option("--body", files, "the body; may be given again")
      ->take_all()
      ->expected(1, kMostBodies)
      ->allow_extra_args(false);
}

}  // namespace algtrack
