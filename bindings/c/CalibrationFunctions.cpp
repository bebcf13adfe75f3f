#include <bindings/c/Handles.h>
#include <bindings/c/KitErrors.h>
#include <bindings/c/Records.h>

#include <alg_kit/calibration/CalibrationCheck.h>
#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/calibration/RecordedPairs.h>

#include <cstring>
#include <optional>
#include <stdexcept>
#include <vector>

using c_interface::Failure;
using c_interface::guarded;
using c_interface::guardedWithFiles;
using c_interface::requireGiven;
using c_interface::requireSize;
using c_interface::taken;

namespace {

using Findings = std::vector<calibration::Finding>;
using OpenFindings = c_interface::Handles<const Findings, alg_findings>;

std::optional<std::string> unitFrom(const alg_calibration_options& options) {
  if (options.unit == nullptr) return std::nullopt;
  try {
    calibration::millimetresPer(options.unit);
  } catch (const std::invalid_argument& error) {
    throw Failure(ALG_BAD_ARGUMENT, error.what());
  }
  return options.unit;
}

}  // namespace

alg_status alg_calibration_load(const char* path, const alg_calibration_options* options,
                                alg_calibration* calibration, size_t size) {
  return guardedWithFiles([&] {
    requireGiven(path, "path");
    requireGiven(calibration, "calibration");
    requireSize(size, sizeof *calibration, "calibration");
    const alg_calibration_options how = taken(options, "options");
    std::vector<std::string> paths = {path};
    if (how.second_path != nullptr) paths.emplace_back(how.second_path);
    const calibration::LoadedCalibration loaded =
        calibration::readCalibration(paths, unitFrom(how));
    calibration::requireUsable(loaded, path);
    std::memcpy(calibration, &loaded.calibration, sizeof *calibration);
    return ALG_OK;
  });
}

alg_status alg_calibration_check(const alg_calibration* calibration, size_t size,
                                 const char* recording, alg_findings** findings) {
  return guardedWithFiles([&] {
    requireGiven(calibration, "calibration");
    requireSize(size, sizeof *calibration, "calibration");
    requireGiven(findings, "findings");
    const std::string record = calibration::recordBytes(c_interface::calibrationFrom(calibration));
    const calibration::LoadedCalibration loaded = calibration::readRecord(record, "calibration");
    auto found =
        std::make_shared<Findings>(calibration::judge(loaded, calibration::measure(loaded)));
    if (recording != nullptr) {
      const recording::RecordingReader reader(recording);
      calibration::judgeWithPairs(loaded, calibration::observedPairs(reader), *found);
    }
    *findings = OpenFindings::open(std::move(found));
    return ALG_OK;
  });
}

alg_status alg_findings_count(alg_findings* findings, uint32_t* count) {
  return guarded([&] {
    const auto found = OpenFindings::at(findings, "findings");
    requireGiven(count, "count");
    *count = static_cast<uint32_t>(found->size());
    return ALG_OK;
  });
}

alg_status alg_findings_at(alg_findings* findings, uint32_t number, const char** code,
                           const char** text) {
  return guarded([&] {
    const auto found = OpenFindings::at(findings, "findings");
    if (number >= found->size()) return ALG_NONE;
    if (code != nullptr) *code = (*found)[number].code.c_str();
    if (text != nullptr) *text = (*found)[number].text.c_str();
    return ALG_OK;
  });
}

alg_status alg_findings_close(alg_findings* findings) {
  return guarded([&] {
    OpenFindings::close(findings, "findings");
    return ALG_OK;
  });
}
