// The 920-byte record that algorithm::AlgBase::Init takes.
#pragma once

#include <alg_kit/calibration/CalibrationFile.h>

#include <cstddef>
#include <string>

namespace calibration {

constexpr std::size_t kRecordBytes = sizeof(algorithm::StereoCalibration);

/// A calibration's numbers are not beyond it: a thousand kilometres, an image of a billion pixels.
/// Products of much larger ones overflow.
constexpr double kLargestNumber = 1e9;

/// Reads the record from a file's content. It states no unit; millimetres suit the library.
/// @param path  for the message
/// @throws text::FileError for another size and for numbers that no calibration has
LoadedCalibration readRecord(const std::string& content, const std::string& path);

/// The record as bytes, little-endian.
std::string recordBytes(const algorithm::StereoCalibration& calibration);

/// What is wrong with the numbers that the library reads, as "expected ..., found ..."; empty if
/// they can be those of a calibration: at most kLargestNumber, focal lengths positive, cameras
/// apart.
std::string problemOf(const algorithm::StereoCalibration& calibration);

}  // namespace calibration
