#include <alg_kit/calibration/CalibrationJson.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <tools/algtrack/CalibrationOutput.h>
#include <tools/algtrack/terminal/OutputFile.h>

#include <filesystem>

namespace algtrack {

using calibration::LoadedCalibration;

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

std::string writeCalibration(const std::string& path, const CalibrationToWrite& written,
                             bool force) {
  OutputFile file(path, force);
  std::string format = "920-byte record";
  if (std::filesystem::path(path).extension() == ".json") {
    format = "JSON";
    file.stream() << calibration::toJson(written.calibration, written.unit, written.width,
                                         written.height)
                         .dump(2)
                  << "\n";
  } else {
    file.stream() << calibration::recordBytes(written.calibration);
  }
  file.commit();
  return format;
}

}  // namespace algtrack
