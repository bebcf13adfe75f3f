#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/CalibrationJson.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/calibration/KalibrFile.h>
#include <alg_kit/calibration/OpenCvFile.h>
#include <alg_kit/rig/StereoRig.h>
#include <alg_kit/text/TextFile.h>

#include <Eigen/Dense>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace calibration {
namespace {

constexpr const char* kExpected =
    "a calibration (Kalibr camera chain, OpenCV FileStorage, 920-byte record or JSON)";

Lens kalibrLens(const std::string& model) {
  if (model == "equidistant") return {LensModel::kEquidistant, true, model};
  if (model == "radtan") return {LensModel::kRadialTangential, true, model};
  return {LensModel::kOther, true, model};
}

LoadedCalibration readKalibr(const std::string& path) {
  DistortionModels models;
  const rig::StereoRig rig = readKalibrCameraChain(path, models);
  LoadedCalibration loaded;
  loaded.calibration = rig.calibration;
  loaded.format = "Kalibr camera chain";
  loaded.unit = "mm";
  loaded.appliedFactor = millimetresPer("m");
  loaded.unitSource = "of this format";
  loaded.width = rig.width;
  loaded.height = rig.height;
  loaded.left = kalibrLens(models.left);
  loaded.right = kalibrLens(models.right);
  return loaded;
}

/// Bytes. A calibration has a few thousand; parsing YAML takes more than 200 times as many.
constexpr std::size_t kLargest = 512 * 1024;

void requireBounded(const algorithm::StereoCalibration& calibration, const std::string& path) {
  // What lies behind the numbers is carried and never used: it may be anything.
  std::array<double, offsetof(algorithm::StereoCalibration, tail) / sizeof(double)> numbers{};
  std::memcpy(numbers.data(), &calibration, sizeof numbers);
  for (const double number : numbers)
    if (!(std::fabs(number) <= kLargestNumber))
      throw text::FileError(path, 0, "expected numbers of at most 1e9, found a larger one");
}

bool beginsWith(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

LoadedCalibration readOne(const std::string& path) {
  const std::string content = text::readTextFile(path, kExpected, kLargest);
  const auto found = [&](const std::string& what) {
    return text::FileError(path, 0, std::string("expected ") + kExpected + ", found " + what);
  };
  if (beginsWith(content, "\x1f\x8b")) throw found("compressed data (gzip): unpack it first");
  if (content.size() == kRecordBytes || content.find('\0') != std::string::npos)
    return readRecord(content, path);
  if (beginsWith(content, "<?xml")) throw found("XML; save the FileStorage as .yml");
  if (isOpenCvText(content)) return readOpenCv({{path, content}});
  if (content[content.find_first_not_of(" \t\r\n") == std::string::npos
                  ? 0
                  : content.find_first_not_of(" \t\r\n")] == '{')
    return readJson(content, path);
  if (content.find("cam0") != std::string::npos) return readKalibr(path);
  throw found("something else");
}

void applyUnit(const std::string& unit, LoadedCalibration& loaded) {
  const double factor = millimetresPer(unit);
  for (double& t : loaded.calibration.translation) t *= factor / loaded.appliedFactor;
  loaded.unit = "mm";
  loaded.appliedFactor = factor;
  loaded.unitSource = "as given";
}

}  // namespace

double millimetresPer(const std::string& unit) {
  for (const auto& [name, factor] :
       {std::pair{"mm", 1.0}, {"cm", 10.0}, {"m", 1000.0}, {"in", 25.4}})
    if (unit == name) return factor;
  throw std::invalid_argument("expected the unit mm, cm, m or in, found " + text::quoted(unit));
}

std::string unitOfFile(const LoadedCalibration& loaded) {
  if (loaded.unit.empty()) return "not stated";
  for (const char* const unit : {"mm", "cm", "m", "in"})
    if (loaded.appliedFactor == millimetresPer(unit))
      return std::string(unit) + " (" + loaded.unitSource + ")";
  return loaded.unit;
}

LoadedCalibration readCalibration(const std::vector<std::string>& paths,
                                  const std::optional<std::string>& unit) {
  if (paths.empty() || paths.size() > 2)
    throw std::invalid_argument("expected one calibration file, or two: intrinsics and extrinsics");
  LoadedCalibration loaded;
  if (paths.size() == 1) {
    loaded = readOne(paths[0]);
  } else {
    std::vector<NamedText> texts;
    for (const std::string& path : paths)
      texts.push_back(
          {path, text::readTextFile(path, "OpenCV's intrinsics or extrinsics", kLargest)});
    loaded = readOpenCv(texts);
  }
  if (unit) applyUnit(*unit, loaded);
  requireBounded(loaded.calibration, paths[0]);
  if (!loaded.fundamentalInFile) recomputeFundamental(loaded.calibration);
  return loaded;
}

void requireUsable(const LoadedCalibration& loaded, const std::string& path) {
  for (const auto& [name, lens] : {std::pair{"left", &loaded.left}, {"right", &loaded.right}})
    if (lens->model != LensModel::kEquidistant)
      throw text::FileError(path, 0,
                            std::string("expected the equidistant (fisheye) lens model with 4 "
                                        "coefficients, found ") +
                                text::quoted(lens->asFound) + " for the " + name +
                                " camera: calibrate it again with that model");
  const Eigen::Matrix3d R = rig::matrixFrom(loaded.calibration.rotation);
  const double deviation = (R * R.transpose() - Eigen::Matrix3d::Identity()).cwiseAbs().maxCoeff();
  if (!(deviation <= 1e-3) || !(R.determinant() > 0)) {
    char determinant[32];
    std::snprintf(determinant, sizeof determinant, "%.4g", R.determinant());
    throw text::FileError(path, 0,
                          std::string("expected a rotation as R, found a matrix of determinant ") +
                              determinant + " that is none" +
                              (R.determinant() < 0 ? ": it mirrors" : ""));
  }
  if (loaded.unit.empty()) {
    char baseline[32];
    std::snprintf(baseline, sizeof baseline, "%.6g", baselineOf(loaded.calibration));
    throw text::FileError(
        path, 0,
        std::string("expected a unit, found a file that states none (its baseline "
                    "is ") +
            baseline + "): say --unit mm, cm, m or in");
  }
}

algorithm::StereoCalibration withCamerasSwapped(const algorithm::StereoCalibration& calibration) {
  algorithm::StereoCalibration swapped = calibration;
  std::swap(swapped.leftIntrinsics, swapped.rightIntrinsics);
  std::swap(swapped.leftDistortion, swapped.rightDistortion);
  const Eigen::Matrix3d R_RtoL = rig::matrixFrom(calibration.rotation).transpose();
  const Eigen::Vector3d p_RinL = -R_RtoL * Eigen::Vector3d(calibration.translation);
  rig::storeMatrix(R_RtoL, swapped.rotation);
  for (int i = 0; i < 3; ++i) swapped.translation[i] = p_RinL[i];
  recomputeFundamental(swapped);
  return swapped;
}

void recomputeFundamental(algorithm::StereoCalibration& calibration) {
  rig::storeMatrix(rig::fundamentalFrom(calibration), calibration.fundamental);
}

double baselineOf(const algorithm::StereoCalibration& calibration) {
  return Eigen::Vector3d(calibration.translation).norm();
}

}  // namespace calibration
