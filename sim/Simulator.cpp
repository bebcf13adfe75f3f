#include <sim/Simulator.h>

#include <cmath>
#include <stdexcept>
#include <string>

namespace sim {
namespace {

void require(bool valid, const std::string& expectation) {
  if (!valid) throw std::invalid_argument("expected " + expectation);
}

void check(const SimulatorOptions& options) {
  const auto isProbability = [](double value) { return value >= 0 && value <= 1; };
  const auto isAmount = [](double value) { return value >= 0 && std::isfinite(value); };
  require(options.frameRate > 0 && std::isfinite(options.frameRate), "a positive frame rate");
  require(options.blobs.markerDiameter > 0 && std::isfinite(options.blobs.markerDiameter),
          "a positive marker diameter");
  require(isAmount(options.driftSeconds) && options.driftSeconds > 0, "a positive time of drift");
  require(options.blobs.emissionAngle > 0 && options.blobs.emissionAngle <= 180,
          "an emission angle above 0 and up to 180 degrees");
  require(isAmount(options.blobs.pixelNoise), "a pixel noise of 0 or more");
  require(options.blobs.strayRate >= 0 && options.blobs.strayRate <= 100,
          "a stray rate from 0 to 100");
  require(isProbability(options.blobs.dropoutProbability), "a dropout probability from 0 to 1");
  require(isProbability(options.blobs.splitProbability), "a split probability from 0 to 1");
  require(isProbability(options.blobs.reflectionProbability),
          "a reflection probability from 0 to 1");
  require(isProbability(options.faults.lossProbability), "a loss probability from 0 to 1");
  require(isProbability(options.faults.corruptProbability), "a corruption probability from 0 to 1");
  require(isProbability(options.faults.wrongCheckProbability),
          "a wrong check byte probability from 0 to 1");
}

}  // namespace

Simulator::Simulator(const rig::StereoRig& rig, Scene scene, SimulatorOptions options)
    : rig_(rig),
      scene_(std::move(scene)),
      options_(std::move(options)),
      source_({rig::withError(rig.calibration, options_.error), rig.width, rig.height},
              options_.blobs) {
  check(options_);
}

double Simulator::timeOf(std::int64_t index) const {
  return static_cast<double>(index) / options_.frameRate;
}

algorithm::StereoCalibration Simulator::trueCalibration(double seconds) const {
  return rig::withError(rig_.calibration,
                        options_.error + (seconds / options_.driftSeconds) * options_.drift);
}

const BlobSource& Simulator::sourceAt(double seconds, std::optional<BlobSource>& storage) const {
  if (options_.drift.none()) return source_;
  return storage.emplace(rig::StereoRig{trueCalibration(seconds), rig_.width, rig_.height},
                         options_.blobs);
}

Frame Simulator::frame(std::int64_t index) const {
  Frame result;
  frame(index, result);
  return result;
}

void Simulator::frame(std::int64_t index, Frame& frame) const {
  Random random(options_.seed, static_cast<std::uint64_t>(index));
  frame.index = index;
  frame.stamp = static_cast<std::uint32_t>(std::llround(timeOf(index) * 1e6));
  frame.truth = scene_.at(timeOf(index));
  std::optional<BlobSource> storage;
  sourceAt(frame.truth.time, storage)
      .observe(frame.truth, objectCount(scene_.productType()), random, frame.blobs);

  frame.blobsCut = 0;
  if (frame.blobs.size() > kMaxPacketRecords) {
    frame.blobsCut = static_cast<int>(frame.blobs.size() - kMaxPacketRecords);
    frame.blobs.resize(kMaxPacketRecords);
  }
  writeDevicePacket(frame.blobs, frame.payload);

  frame.lost = random.chance(options_.faults.lossProbability);
  frame.corrupted = random.chance(options_.faults.corruptProbability);
  frame.wrongCheck = random.chance(options_.faults.wrongCheckProbability);
  const auto position =
      static_cast<std::size_t>(random.index(static_cast<int>(frame.payload.size())));
  const auto mask = static_cast<std::uint8_t>(1 + random.index(255));
  if (frame.wrongCheck) spoilCheckByte(frame.payload);
  if (frame.corrupted) corruptByte(frame.payload, position, mask);

  if (frame.lost) {
    frame.payload.clear();
  } else if (options_.framing == Framing::kStamped) {
    frame.payload = frameType2(frame.stamp, frame.payload);
  }
}

Bytes Simulator::inertialPayloadOf(int device, std::int64_t index) const {
  return inertialPayload(
      inertialRecord(scene_, scene_.objects().at(static_cast<std::size_t>(device)), timeOf(index)));
}

}  // namespace sim
