// Any file as a calibration: it is refused with a FileError of one line, or what was read can be
// judged, written and read back unchanged.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <alg_kit/calibration/CalibrationCheck.h>
#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/text/TextFile.h>
#include <fuzz/ScratchFile.h>

namespace {

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "CalibrationFuzz: %s\n", what.c_str());
  std::abort();
}

void checkMessage(const std::string& text) {
  if (text.find('\n') != std::string::npos) fail("a message of several lines: " + text);
}

void use(const calibration::LoadedCalibration& loaded, const std::string& path) {
  calibration::judge(loaded, calibration::measure(loaded));
  try {
    calibration::requireUsable(loaded, path);
  } catch (const text::FileError& error) {
    checkMessage(error.what());
  }
  const std::string problem = calibration::problemOf(loaded.calibration);
  const std::string bytes = calibration::recordBytes(loaded.calibration);
  std::string refusal;
  try {
    const auto again = calibration::readRecord(bytes, path);
    if (calibration::recordBytes(again.calibration) != bytes) fail("a record changed on its way");
  } catch (const text::FileError& error) {
    refusal = error.what();
    checkMessage(refusal);
  }
  if (problem.empty() != refusal.empty()) fail("judged as '" + problem + "', read: " + refusal);
}

}  // namespace

/// The first byte says how it is read, the others are the file; from 0x80 on they are two files,
/// cut at the first zero byte.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzing::ScratchFile first("calibration"), second("calibration2");
  static const std::optional<std::string> kUnits[] = {std::nullopt, "mm", "m", "in"};
  if (size == 0) return 0;
  const std::uint8_t how = data[0];
  ++data;
  --size;

  std::vector<std::string> paths = {first.path()};
  std::size_t firstSize = size;
  if (how >= 0x80) {
    if (const void* cut = std::memchr(data, 0, size)) {
      firstSize = static_cast<std::size_t>(static_cast<const std::uint8_t*>(cut) - data);
      second.write(data + firstSize + 1, size - firstSize - 1);
      paths.push_back(second.path());
    }
  }
  first.write(data, firstSize);
  try {
    use(calibration::readCalibration(paths, kUnits[how % 4]), first.path());
  } catch (const text::FileError& error) {
    checkMessage(error.what());
  }
  return 0;
}
