#include <tools/algtrack/terminal/Options.h>

#include <alg_kit/calibration/CalibrationFile.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace algtrack {
namespace {

std::string shortNumber(double value) {
  char buffer[40];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  return buffer;
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
        return valid ? std::string() : "expected a number from " + range + ", found '" + text + "'";
      },
      range);
}

CLI::Validator wholeNumber() {
  return CLI::Validator(
      [](std::string& text) {
        std::uint64_t value = 0;
        const char* const end = text.data() + text.size();
        const auto [parsed, error] = std::from_chars(text.data(), end, value);
        const bool valid = error == std::errc() && parsed == end;
        return valid ? std::string() : "expected a whole number, found '" + text + "'";
      },
      "");
}

rig::StereoRig RigOption::read() const {
  const auto loaded = calibration::readCalibration(
      {file}, unit.empty() ? std::nullopt : std::optional<std::string>(unit));
  calibration::requireUsable(loaded, file);
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
      ->check(CLI::IsMember({"mm", "cm", "m", "in"}))
      ->needs(file);
}

}  // namespace algtrack
