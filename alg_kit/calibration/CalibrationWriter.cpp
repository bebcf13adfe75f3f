#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/CalibrationWriter.h>
#include <alg_kit/rig/StereoRig.h>

#include <Eigen/Dense>
#include <charconv>
#include <cstdio>
#include <stdexcept>

namespace calibration {
namespace {

/// With every bit.
std::string exact(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.17g", value);
  return text;
}

std::string list(const double* values, int count) {
  std::string text = "[";
  for (int i = 0; i < count; ++i) text += (i == 0 ? "" : ", ") + exact(values[i]);
  return text + "]";
}

std::string matrix(const std::string& name, const double* values, int rows, int columns) {
  return name + ": !!opencv-matrix\n   rows: " + std::to_string(rows) +
         "\n   cols: " + std::to_string(columns) +
         "\n   dt: d\n   data: " + list(values, rows * columns) + "\n";
}

/// E = [T]x R.
void essentialOf(const algorithm::StereoCalibration& c, double (&E)[9]) {
  const Eigen::Vector3d T(c.translation);
  Eigen::Matrix3d cross;
  cross << 0, -T.z(), T.y(), T.z(), 0, -T.x(), -T.y(), T.x(), 0;
  rig::storeMatrix(cross * rig::matrixFrom(c.rotation), E);
}

std::string chainCamera(const std::string& name, int other, const double (&k)[9],
                        const double (&distortion)[8], const CalibrationToWrite& written) {
  if (k[1] != 0)
    throw std::invalid_argument("expected a camera matrix without skew for a Kalibr camera chain");
  const double intrinsics[4] = {k[0], k[4], k[2], k[5]};
  return name + ":\n  cam_overlaps: [" + std::to_string(other) +
         "]\n  camera_model: pinhole\n  distortion_coeffs: " + list(distortion, 4) +
         "\n  distortion_model: equidistant\n  intrinsics: " + list(intrinsics, 4) +
         "\n  resolution: [" + std::to_string(written.width) + ", " +
         std::to_string(written.height) + "]\n  rostopic: /" + name + "/image_raw\n";
}

}  // namespace

std::string shiftedText(double value, int shift) {
  char text[40];
  std::snprintf(text, sizeof text, "%.16e", value);
  std::string digits = text;
  const std::size_t at = digits.find('e');
  if (value == 0 || at == std::string::npos) return digits;
  const int exponent = std::stoi(digits.substr(at + 1)) + shift;
  return digits.substr(0, at + 1) + std::to_string(exponent);
}

bool readShifted(const std::string& text, int shift, double& value) {
  if (text.empty() || text.size() > 60 ||
      text.find_first_not_of("+-.0123456789eE") != std::string::npos)
    return false;
  std::string digits = text[0] == '+' ? text.substr(1) : text;
  const std::size_t at = digits.find_first_of("eE");
  int exponent = 0;
  if (at != std::string::npos) {
    const char* const begin = digits.data() + at + 1 + (digits[at + 1] == '+' ? 1 : 0);
    const auto [end, error] = std::from_chars(begin, digits.data() + digits.size(), exponent);
    if (error != std::errc() || end != digits.data() + digits.size()) return false;
    digits.erase(at);
  }
  digits += "e" + std::to_string(exponent + shift);
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return error == std::errc() && end == digits.data() + digits.size();
}

std::string openCvText(const CalibrationToWrite& written) {
  const algorithm::StereoCalibration& c = written.calibration;
  std::string text = "%YAML:1.0\n---\n";
  if (written.width > 0 && written.height > 0)
    text += "image_width: " + std::to_string(written.width) +
            "\nimage_height: " + std::to_string(written.height) + "\n";
  text += "translation_unit: " + written.unit + "\n";
  double E[9];
  essentialOf(c, E);
  return text + matrix("K1", c.leftIntrinsics, 3, 3) + matrix("D1", c.leftDistortion, 4, 1) +
         matrix("K2", c.rightIntrinsics, 3, 3) + matrix("D2", c.rightDistortion, 4, 1) +
         matrix("R", c.rotation, 3, 3) + matrix("T", c.translation, 3, 1) + matrix("E", E, 3, 3) +
         matrix("F", c.fundamental, 3, 3);
}

std::string kalibrText(const CalibrationToWrite& written) {
  const algorithm::StereoCalibration& c = written.calibration;
  if (written.width <= 0 || written.height <= 0)
    throw std::invalid_argument(
        "expected the size of the images, which a Kalibr camera chain states, found none: say "
        "--image-size WIDTH,HEIGHT");
  std::string text = chainCamera("cam0", 1, c.leftIntrinsics, c.leftDistortion, written) +
                     chainCamera("cam1", 0, c.rightIntrinsics, c.rightDistortion, written) +
                     "  T_cn_cnm1:\n";
  const double toMillimetres = millimetresPer(written.unit);
  for (int row = 0; row < 3; ++row) {
    text += "  - [";
    for (int column = 0; column < 3; ++column) text += exact(c.rotation[3 * row + column]) + ", ";
    text += shiftedText(c.translation[row] * toMillimetres, -3) + "]\n";
  }
  return text + "  - [0.0, 0.0, 0.0, 1.0]\n";
}

}  // namespace calibration
