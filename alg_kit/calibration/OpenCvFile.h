// Calibrations as OpenCV's FileStorage writes them (YAML or JSON).
#pragma once

#include <alg_kit/calibration/CalibrationFile.h>

#include <string>
#include <vector>

namespace calibration {

struct NamedText {
  std::string path;
  std::string content;
};

/// True for text that FileStorage wrote.
bool isOpenCvText(const std::string& content);

/// Reads camera matrices (K1, K2 or M1, M2), coefficients (D1, D2), R and T, and where present F
/// and the image size, from one file or spread over several. OpenCV's first camera is the left one;
/// its R and T take a point of the first camera's frame to the second's, which is our convention
/// too. Four coefficients are taken as those of the fisheye model; any other number can only be the
/// radial-tangential model's.
/// @throws text::FileError
LoadedCalibration readOpenCv(const std::vector<NamedText>& files);

}  // namespace calibration
