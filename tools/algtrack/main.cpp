// algtrack: simulate, record, replay, inspect, calibrate, report. Registers the subcommands and
// turns whatever they throw into one line on stderr and an exit status.
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/terminal/CommandLine.h>
#include <tools/algtrack/terminal/ExitStatus.h>
#include <tools/algtrack/terminal/Help.h>
#include <tools/algtrack/terminal/Interrupt.h>
#include <tools/algtrack/terminal/Table.h>

#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kLongestLine = 1000;

std::string shortLine(const std::string& text) {
  const std::string line = algtrack::oneLine(text);
  return line.size() <= kLongestLine ? line : line.substr(0, kLongestLine) + "...";
}

int fail(const std::exception& error, algtrack::ExitStatus status) {
  std::cout.flush();
  std::cerr << "algtrack: " << shortLine(error.what()) << "\n";
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "algtrack: tools around the alg_factory tracking library.\n"
      "\n"
      "  algtrack simulate -o walk.algrec --product-type 1 --seconds 20 --noise 0.05\n"
      "  algtrack replay walk.algrec --verify\n"
      "  algtrack inspect walk.algrec\n"
      "  algtrack report walk.algrec -o walk.html\n"
      "  algtrack view walk.algrec\n"
      "\n"
      "Every subcommand has its own --help with examples. Exit status: 0 done, or the same;\n"
      "1 something differs or was found; 2 not done.",
      "algtrack");
  app.set_version_flag("-V,--version", ALG_FACTORY_VERSION);
  app.formatter(std::make_shared<algtrack::Help>());
  app.require_subcommand(1);
  algtrack::addCommands(app);

  algtrack::heedInterrupts();
  try {
    algtrack::runCommandLine(app, std::vector<std::string>(argv + 1, argv + argc));
    if (!std::cout.flush()) throw std::runtime_error("standard output: writing failed");
    return algtrack::kFine;
  } catch (const algtrack::SomethingFound& answer) {
    return fail(answer, algtrack::kFound);
  } catch (const std::exception& error) {
    return fail(error, algtrack::kFailed);
  }
}
