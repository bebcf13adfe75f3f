#pragma once

#include <CLI/CLI.hpp>

namespace algtrack {

/// --help in lines of at most 100 columns. In the overview a command is its description's first
/// paragraph, without the examples.
class Help : public CLI::Formatter {
 public:
  std::string make_subcommand(const CLI::App* command) const override;
  std::string make_option(const CLI::Option* option, bool isPositional) const override;
  std::string make_option_usage(const CLI::Option* option) const override;
};

}  // namespace algtrack
