// algtrack: simulate, record, replay, inspect, calibrate, report. Registers the subcommands and
// turns whatever they throw into one line on stderr.
#include <tools/algtrack/Commands.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

std::string oneLine(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

/// A subcommand's line in the overview: its description without the examples.
class Overview : public CLI::Formatter {
 public:
  std::string make_subcommand(const CLI::App* command) const override {
    const std::string description = command->get_description();
    std::ostringstream line;
    CLI::detail::format_help(line, command->get_name(),
                             oneLine(description.substr(0, description.find("\n\n"))),
                             get_column_width());
    return line.str();
  }
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "algtrack: tools around the alg_factory tracking library.\n"
      "\n"
      "  algtrack simulate -o walk.algrec --product-type 1 --seconds 20 --noise 0.05\n"
      "  algtrack replay walk.algrec --verify\n"
      "  algtrack inspect walk.algrec\n"
      "  algtrack report walk.algrec -o walk.html\n"
      "\n"
      "Every subcommand has its own --help with examples.",
      "algtrack");
  app.set_version_flag("--version", ALG_FACTORY_VERSION);
  app.formatter(std::make_shared<Overview>());
  app.require_subcommand(1);
  algtrack::addSimulateCommand(app);
  algtrack::addReplayCommand(app);
  algtrack::addInspectCommand(app);
  algtrack::addCalibrationCommand(app);
  algtrack::addReportCommand(app);

  try {
    app.parse(argc, argv);
    if (!std::cout.flush()) throw std::runtime_error("standard output: writing failed");
    return 0;
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
    std::cerr << "algtrack: " << oneLine(error.what()) << " (see --help)\n";
    return kWrongUsage;
  } catch (const std::exception& error) {
    std::cout.flush();
    std::cerr << "algtrack: " << oneLine(error.what()) << "\n";
    return kFailed;
  }
}
