// Options that several subcommands share.
#pragma once

#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/rig/StereoRig.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace algtrack {

/// A number from `low` to `high`, both included; nan and inf are refused in plain words.
CLI::Validator numberFrom(double low, double high);

/// Numbers with commas between them: "0.3,-0.4,0.25".
/// @param counts  how many there may be
/// @param limit   none is larger, whatever its sign
/// @throws std::runtime_error that begins with the option's name
std::vector<double> numbersOf(const std::string& option, const std::string& text,
                              const std::vector<std::size_t>& counts, double limit);

/// Digits only: what reads unsigned numbers would take -1 for a very large one.
CLI::Validator wholeNumber();

/// Digits only, from 0 to `most`.
CLI::Validator wholeNumberTo(std::int64_t most);

/// Digits, with a minus before them where `least` is below 0.
CLI::Validator wholeNumberFrom(std::int64_t least, std::int64_t most);

/// One of these words, as they stand.
CLI::Validator oneOf(const std::vector<std::string>& words);

/// Says in one line, beside the results, that a calibration's unit seems to be another one than
/// millimetres: it is legal, and every number that comes of it is nonsense.
/// @param file  where it was read
void noteUnit(const calibration::LoadedCalibration& loaded, const std::string& file);

/// A calibration given on the command line, in any format that `algtrack calibration` reads.
struct RigOption {
  std::string file;  ///< empty = not given
  std::string unit;  ///< of its translation; empty = as the file says

  bool given() const { return !file.empty(); }

  /// @throws text::FileError, in one line
  rig::StereoRig read() const;
};

/// Declares --calibration FILE and --unit.
void addRigOption(CLI::App& command, RigOption& rig, const std::string& description);

/// Declares --body FILE, which may be given again.
CLI::Option* addBodyFiles(CLI::App& command, std::vector<std::string>& files);

}  // namespace algtrack
