#include <tools/algtrack/terminal/MomentOptions.h>

#include <alg_factory/api/Constants.h>
#include <tools/algtrack/terminal/Options.h>

#include <stdexcept>

namespace algtrack {
namespace {

constexpr double kMostSeconds = 1e9;

}  // namespace

void addTimeRangeOptions(CLI::App& command, analysis::TimeRange& range) {
  const auto seconds = numberFrom(0, kMostSeconds);
  command
      .add_option("--from", range.from, "seconds of the recording: what begins before is left out")
      ->check(seconds);
  command
      .add_option("--to", range.to,
                  "seconds of the recording: what begins then or later is left out")
      ->check(seconds);
}

void checkTimeRange(const analysis::TimeRange& range) {
  if (range.from && range.to && *range.to <= *range.from)
    throw std::runtime_error("--to: expected more than --from, " +
                             analysis::secondsText(*range.from) + ", found " +
                             analysis::secondsText(*range.to));
}

void addObjectOption(CLI::App& command, std::optional<int>& object,
                     const std::string& description) {
  command.add_option("--object", object, description)
      ->check(wholeNumberTo(algorithm::kMaxObjects - 1));
}

void addMomentOptions(CLI::App& command, analysis::MomentQuery& query) {
  CLI::Option* const time =
      command
          .add_option("--time", query.time,
                      "a moment by its time: the device packet nearest to these seconds of the "
                      "recording")
          ->check(numberFrom(0, kMostSeconds));
  CLI::Option* const call =
      command
          .add_option("--call", query.call,
                      "a moment by a call's number: that packet, or the last one before the call")
          ->check(wholeNumber());
  CLI::Option* const packet =
      command
          .add_option("--packet", query.packet,
                      "a moment by its number: device packets (stream types 0 and 2), from 0")
          ->check(wholeNumber());
  time->excludes(call);
  time->excludes(packet);
  call->excludes(packet);
}

}  // namespace algtrack
