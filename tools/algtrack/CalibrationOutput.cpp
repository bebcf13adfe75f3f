#include <alg_kit/calibration/CalibrationJson.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <tools/algtrack/CalibrationOutput.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/OutputFile.h>

#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace algtrack {

using calibration::LoadedCalibration;

namespace {

enum class Format { kRecord, kJson, kOpenCv, kKalibr };

Format formatOf(const std::string& path) {
  const std::string ending = std::filesystem::path(path).extension().string();
  if (ending.empty() || ending == ".bin") return Format::kRecord;
  if (ending == ".json") return Format::kJson;
  if (ending == ".yml") return Format::kOpenCv;
  if (ending == ".yaml") return Format::kKalibr;
  throw std::runtime_error(path + ": expected an ending that names a format, " +
                           kCalibrationEndings + ", found '" + ending + "'");
}

std::string contentOf(Format format, const calibration::CalibrationToWrite& written,
                      const std::string& path) {
  try {
    switch (format) {
      case Format::kJson:
        return calibration::toJson(written.calibration, written.unit, written.width, written.height)
                   .dump(2) +
               "\n";
      case Format::kOpenCv:
        return calibration::openCvText(written);
      case Format::kKalibr:
        return calibration::kalibrText(written);
      case Format::kRecord:
        break;
    }
  } catch (const std::invalid_argument& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
  return calibration::recordBytes(written.calibration);
}

}  // namespace

LoadedCalibration recordedCalibration(const recording::RecordingReader& reader) {
  LoadedCalibration loaded;
  for (const recording::Configuration& configuration : reader.configurations()) {
    if (!configuration.calibration) continue;
    loaded = calibration::readRecord(calibration::recordBytes(*configuration.calibration),
                                     reader.path());
    loaded.format = "calibration of call " + std::to_string(configuration.call);
  }
  if (loaded.format.empty())
    throw recording::RecordingError(reader.path(), "expected a calibration in it, found none");
  return loaded;
}

void checkCalibrationEndings(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) formatOf(path);
}

std::string writeCalibration(const std::string& path,
                             const calibration::CalibrationToWrite& written, bool force) {
  const Format format = formatOf(path);
  const std::string content = contentOf(format, written, path);
  OutputFile file(path, force);
  file.stream() << content;
  file.commit();
  switch (format) {
    case Format::kJson:
      return "JSON";
    case Format::kOpenCv:
      return "OpenCV FileStorage";
    case Format::kKalibr:
      return "Kalibr camera chain";
    case Format::kRecord:
      break;
  }
  return "920-byte record";
}

void setImageSize(const std::string& text, LoadedCalibration& loaded) {
  if (text.empty()) return;
  const std::vector<double> size = numbersOf("--image-size", text, {2}, 65535);
  for (const double pixels : size)
    if (pixels < 1 || pixels != std::floor(pixels))
      throw std::runtime_error("--image-size: expected WIDTH,HEIGHT in whole pixels, found '" +
                               text + "'");
  const auto sizeText = [](int width, int height) {
    return std::to_string(width) + "," + std::to_string(height);
  };
  if (loaded.width > 0 && (loaded.width != size[0] || loaded.height != size[1]))
    throw std::runtime_error("--image-size: expected " + sizeText(loaded.width, loaded.height) +
                             ", as the file states, found '" + text + "'");
  loaded.width = static_cast<int>(size[0]);
  loaded.height = static_cast<int>(size[1]);
}

}  // namespace algtrack
