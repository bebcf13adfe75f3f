#include <tools/algtrack/terminal/Options.h>

#include <alg_kit/calibration/CalibrationCheck.h>
#include <alg_kit/text/TextFile.h>
#include <tools/algtrack/terminal/Table.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <limits>
#include <optional>
#include <stdexcept>

namespace algtrack {
namespace {

std::string shortNumber(double value) {
  char buffer[40];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  return buffer;
}

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();

bool isWhole(const std::string& text, std::int64_t least, std::int64_t most) {
  std::int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && parsed == end && (least < 0 || text[0] != '-') && value >= least &&
         value <= most;
}

// Where a file does not say how large its images are: the principal point is near their middle.
int sizeAround(double principalPoint) {
  return static_cast<int>(std::lround(2 * principalPoint));
}

}  // namespace

CLI::Validator numberFrom(double low, double high) {
  const std::string range = shortNumber(low) + " to " + shortNumber(high);
  return CLI::Validator(
      [=](std::string& text) {
        double value = NAN;
        const char* const end = text.data() + text.size();
        const auto [parsed, error] = std::from_chars(text.data(), end, value);
        const bool valid = error == std::errc() && parsed == end && value >= low && value <= high;
        return valid ? std::string()
                     : "expected a number from " + range + ", found " + text::quoted(text);
      },
      range);
}

std::vector<double> numbersOf(const std::string& option, const std::string& text,
                              const std::vector<std::size_t>& counts, double limit) {
  std::vector<double> values;
  const char* position = text.data();
  const char* const end = position + text.size();
  bool valid = true;
  while (valid) {
    const auto [parsed, error] = std::from_chars(position, end, values.emplace_back());
    valid = error == std::errc() && std::abs(values.back()) <= limit;
    position = parsed;
    if (position == end) break;
    valid = valid && *position++ == ',';
  }
  if (valid && std::count(counts.begin(), counts.end(), values.size()) > 0) return values;
  std::string choice;
  for (const std::size_t count : counts)
    choice += (choice.empty() ? "" : " or ") + std::to_string(count);
  throw std::runtime_error(option + ": expected " + choice + " numbers from -" +
                           shortNumber(limit) + " to " + shortNumber(limit) +
                           " with commas between them, found '" + text.substr(0, 100) + "'");
}

CLI::Validator wholeNumber() {
  CLI::Validator number = wholeNumberTo(kLargest);
  number.description("");  // the limit is no news
  return number;
}

CLI::Validator wholeNumberTo(std::int64_t most) {
  return wholeNumberFrom(0, most);
}

CLI::Validator wholeNumberFrom(std::int64_t least, std::int64_t most) {
  const std::string range = std::to_string(least) + " to " + std::to_string(most);
  return CLI::Validator(
      [=](std::string& text) {
        return isWhole(text, least, most)
                   ? std::string()
                   : "expected a whole number from " + range + ", found " + text::quoted(text);
      },
      range);
}

CLI::Validator oneOf(const std::vector<std::string>& words) {
  std::string list;
  for (std::size_t i = 0; i < words.size(); ++i)
    list += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
  return CLI::Validator(
      [=](std::string& text) {
        return std::find(words.begin(), words.end(), text) != words.end()
                   ? std::string()
                   : "expected " + list + ", found " + text::quoted(text);
      },
      list);
}

void noteUnit(const calibration::LoadedCalibration& loaded, const std::string& file) {
  if (const auto finding = calibration::judgeUnit(loaded))
    std::cerr << "Note: " << oneLine(file) << ": " << finding->text << "\n";
}

rig::StereoRig RigOption::read() const {
  const auto loaded = calibration::readCalibration(
      {file}, unit.empty() ? std::nullopt : std::optional<std::string>(unit));
  calibration::requireUsable(loaded, file);
  noteUnit(loaded, file);
  rig::StereoRig rig;
  rig.calibration = loaded.calibration;
  rig.width = loaded.width > 0 ? loaded.width : sizeAround(rig.calibration.leftIntrinsics[2]);
  rig.height = loaded.height > 0 ? loaded.height : sizeAround(rig.calibration.leftIntrinsics[5]);
  return rig;
}

void addRigOption(CLI::App& command, RigOption& rig, const std::string& description) {
  CLI::Option* const file = command.add_option("--calibration", rig.file, description);
  command
      .add_option("--unit", rig.unit,
                  "unit of the calibration's translation, where its file does not say it")
      ->check(oneOf({"mm", "cm", "m", "in"}))
      ->needs(file);
}

CLI::Option* addBodyFiles(CLI::App& command, std::vector<std::string>& files) {
  constexpr int kMostBodies = 16;
  return command.add_option("--body", files, "the body; may be given again")
      ->take_all()
      ->expected(1, kMostBodies)
      ->allow_extra_args(false);
}

}  // namespace algtrack
