#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/text/TextFile.h>

#include <cmath>
#include <cstdint>
#include <cstring>

namespace calibration {
namespace {

constexpr std::size_t kDoubles = kRecordBytes / sizeof(double);

/// The other four coefficients of a radial-tangential model stand where the library reads nothing.
Lens lensOf(const double (&distortion)[8]) {
  for (int i = 4; i < 8; ++i)
    if (distortion[i] != 0) return {LensModel::kRadialTangential, true, "more than 4 coefficients"};
  return {};
}

template <std::size_t N>
bool bounded(const double (&values)[N]) {
  for (const double value : values)
    if (!(std::fabs(value) <= kLargestNumber)) return false;
  return true;
}

std::string problemOfCamera(const double (&k)[9], const std::string& name) {
  if (!bounded(k))
    return "expected numbers of at most 1e9 in the " + name + " camera matrix, found others";
  if (!(k[0] > 0) || !(k[4] > 0))
    return "expected positive focal lengths in the " + name + " camera matrix, found others";
  if (k[3] != 0 || k[6] != 0 || k[7] != 0 || k[8] != 1)
    return "expected fx s cx, 0 fy cy, 0 0 1 as the " + name + " camera matrix, found another";
  return "";
}

}  // namespace

LoadedCalibration readRecord(const std::string& content, const std::string& path) {
  if (content.size() != kRecordBytes)
    throw text::FileError(path, 0,
                          "expected the " + std::to_string(kRecordBytes) +
                              " bytes of a calibration record, found " +
                              std::to_string(content.size()));
  double values[kDoubles];
  for (std::size_t i = 0; i < kDoubles; ++i) {
    std::uint64_t bits = 0;
    for (std::size_t byte = 8; byte-- > 0;)
      bits = bits << 8 | static_cast<std::uint8_t>(content[8 * i + byte]);
    std::memcpy(&values[i], &bits, sizeof bits);
  }
  LoadedCalibration loaded;
  static_assert(sizeof values == sizeof loaded.calibration);
  std::memcpy(&loaded.calibration, values, sizeof values);
  const std::string problem = problemOf(loaded.calibration);
  if (!problem.empty()) throw text::FileError(path, 0, problem);
  loaded.format = "calibration record";
  loaded.unit = "mm";
  loaded.unitSource = "of this format";
  loaded.left = lensOf(loaded.calibration.leftDistortion);
  loaded.right = lensOf(loaded.calibration.rightDistortion);
  loaded.fundamentalInFile = true;
  return loaded;
}

std::string recordBytes(const algorithm::StereoCalibration& calibration) {
  double values[kDoubles];
  std::memcpy(values, &calibration, sizeof values);
  std::string bytes;
  for (const double value : values) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    for (int i = 0; i < 8; ++i) bytes += static_cast<char>(bits >> (8 * i) & 0xFF);
  }
  return bytes;
}

std::string problemOf(const algorithm::StereoCalibration& c) {
  for (const auto& problem :
       {problemOfCamera(c.leftIntrinsics, "left"), problemOfCamera(c.rightIntrinsics, "right")})
    if (!problem.empty()) return problem;
  if (!bounded(c.leftDistortion) || !bounded(c.rightDistortion))
    return "expected distortion coefficients of at most 1e9, found others";
  if (!bounded(c.rotation)) return "expected numbers of at most 1e9 in the rotation, found others";
  if (!bounded(c.translation))
    return "expected numbers of at most 1e9 in the translation, found others";
  if (!bounded(c.fundamental))
    return "expected numbers of at most 1e9 in the fundamental matrix, found others";
  if (!(baselineOf(c) > 1e-9)) return "expected cameras apart, found both in one place";
  return "";
}

}  // namespace calibration
