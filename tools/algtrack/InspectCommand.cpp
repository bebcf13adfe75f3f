#include <tools/algtrack/Commands.h>
#include <tools/algtrack/Inspect.h>
#include <tools/algtrack/terminal/ExitStatus.h>
#include <tools/algtrack/terminal/MomentOptions.h>
#include <tools/algtrack/terminal/Options.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <iostream>
#include <memory>
#include <stdexcept>

namespace algtrack {
namespace {

/// --explain, or --explain N for --explain --packet N.
void takeExplained(InspectOptions& options, const std::string& explained) {
  if (explained.empty()) return;
  options.explain = true;
  if (explained == "true") return;
  if (options.moment.given())
    throw std::runtime_error("--explain: expected one moment, found a packet number and another");
  std::int64_t packet = 0;
  std::from_chars(explained.data(), explained.data() + explained.size(), packet);
  options.moment.packet = packet;
}

void inspect(InspectOptions options, const std::string& explained) {
  takeExplained(options, explained);
  checkTimeRange(options.range);
  if (options.explain && !options.moment.given())
    throw std::runtime_error(
        "--explain: expected a moment (--time, --call or --packet), found none");
  if (options.moment.given() && options.range.given())
    throw std::runtime_error(
        "--from and --to: expected without --time, --call and --packet, found both");
  if (options.moment.given() && options.object && !options.explain)
    throw std::runtime_error("--object: expected --explain with --time, --call or --packet");
  if (options.moment.given()) return inspectPacket(options);
  if (options.object) return inspectObject(options);
  inspectRecording(options);
}

CLI::Validator packetNumberOrNone() {
  const CLI::Validator number = wholeNumber();
  return CLI::Validator(
      [number](std::string& text) { return text == "true" ? std::string() : number(text); }, "");
}

}  // namespace

Json crossCheckJson(const analysis::CrossCheck& check) {
  Json json;
  json["compared"] = check.compared();
  json["equal"] = check.equal();
  json["first_difference"] =
      check.firstDifference() ? momentJson(*check.firstDifference()) : Json(nullptr);
  return json;
}

void requireAgreement(const std::optional<std::string>& problem) {
  if (problem) throw SomethingFound(*problem);
}

void printSection(const std::string& title, const Table& table) {
  std::cout << "\n" << title << "\n";
  if (table.empty()) {
    std::cout << "none\n";
  } else {
    table.print(std::cout);
  }
}

void addInspectCommand(CLI::App& app) {
  auto* const command = app.add_subcommand(
      "inspect",
      "Shows what is in a recording, and why there is no point.\n"
      "\n"
      "  algtrack inspect walk.algrec                         what is in it, and where to look\n"
      "  algtrack inspect walk.algrec --object 3              when object 3 was missing, and why\n"
      "  algtrack inspect walk.algrec --object 3 --from 4 --to 7\n"
      "  algtrack inspect walk.algrec --explain --time 5      what became of every object and\n"
      "                                                       blob of the packet at 5 s\n"
      "  algtrack inspect walk.algrec --packet 17             every byte of a packet\n"
      "  algtrack inspect walk.algrec --json                  the same for programs\n");
  const auto options = std::make_shared<InspectOptions>();
  const auto explained = std::make_shared<std::string>();
  command->add_option("file", options->file, "the recording")->required();
  addObjectOption(*command, options->object,
                  "when this object was missing and why; with --explain, this object alone");
  addTimeRangeOptions(*command, options->range);
  addMomentOptions(*command, options->moment);
  command
      ->add_option("--explain", *explained,
                   "follow the objects and blobs of a packet to where they ended; --explain N is "
                   "--explain --packet N")
      ->expected(0, 1)
      ->check(packetNumberOrNone());
  command->add_flag("--json", options->json, "print JSON");
  command->callback([options, explained] { inspect(*options, *explained); });
}

}  // namespace algtrack
