#include <sim/RecordedSimulation.h>

#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/recording/RecordingAlg.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

namespace sim {
namespace {

/// Everything that decides the file's content, for whoever finds the file later.
std::string describe(const SimulatorOptions& simulation, const SessionOptions& options,
                     const SessionDescription& description) {
  nlohmann::ordered_json facts;
  facts["seed"] = simulation.seed;
  facts["calibration"] = description.calibration;
  facts["motion"] = description.motion;
  if (!description.body.empty()) facts["body"] = description.body;
  facts["product_type"] = options.productType;
  facts["seconds"] = options.seconds;
  facts["rate_hz"] = simulation.frameRate;
  facts["marker_mm"] = simulation.blobs.markerDiameter;
  if (simulation.blobs.emissionAngle < 180) facts["emission_deg"] = simulation.blobs.emissionAngle;
  facts["noise_px"] = simulation.blobs.pixelNoise;
  facts["dropouts"] = simulation.blobs.dropoutProbability;
  facts["splits"] = simulation.blobs.splitProbability;
  facts["strays"] = simulation.blobs.strayRate;
  facts["reflections"] = simulation.blobs.reflectionProbability;
  facts["occlusions"] = description.occlusions;
  facts["loss"] = simulation.faults.lossProbability;
  facts["corrupt"] = simulation.faults.corruptProbability;
  facts["wrong_check"] = simulation.faults.wrongCheckProbability;
  for (const char* const name : {"bend", "drift", "focal_error", "centre_error"}) {
    const auto found = description.rigErrors.find(name);
    if (found != description.rigErrors.end()) facts[name] = found->second;
  }
  return facts.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

/// A calibration as the 920 bytes that Init takes, in hexadecimal digits.
std::string hexOf(const algorithm::StereoCalibration& calibration) {
  std::string text;
  for (const char byte : calibration::recordBytes(calibration)) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[static_cast<unsigned char>(byte) & 15];
  }
  return text;
}

/// A host in miniature: it counts what comes back.
struct Host : algorithm::DataSink, algorithm::LogSink {
  explicit Host(SessionCounts& whatCame) : counts(whatCame) {}
  bool Deliver(const void*, int, int) override {
    ++counts.blocks;
    return true;
  }
  bool Log(int, const char* message) override {
    std::string text = message;
    while (!text.empty() && text.back() == '\n') text.pop_back();
    ++counts.messages[text];
    return true;
  }
  SessionCounts& counts;
};

void addTruth(const Frame& frame, std::int64_t timeNs, recording::RecordingAlg& alg,
              std::optional<std::int64_t> call) {
  std::vector<session::TruthRow> rows;
  for (const MarkerTruth& marker : frame.truth.markers) {
    session::TruthRow& row = rows.emplace_back();
    row.frame = frame.index;
    row.call = call;
    row.timeNs = timeNs;
    row.object = marker.objectId;
    row.marker = marker.markerIndex;
    for (int i = 0; i < 3; ++i) row.position[i] = marker.position[i];
    row.inLeft = marker.inLeft;
    row.inRight = marker.inRight;
  }
  alg.addTruth(rows);
}

void input(recording::RecordingAlg& alg, int streamType, const Bytes& payload) {
  alg.InputStream(streamType, payload.data(), 0, static_cast<int>(payload.size()));
}

void drive(const Simulator& simulator, const SessionOptions& options, recording::RecordingAlg& alg,
           std::int64_t& nowNs, SessionCounts& counts,
           const std::function<void(std::int64_t done, std::int64_t total)>& progress) {
  alg.Init(options.productType,
           reinterpret_cast<const unsigned char*>(&simulator.rig().calibration), 0);
  if (options.filterMode != -1) alg.SetFilterMode(0, options.filterMode, nullptr);

  counts.frames = std::max<std::int64_t>(1, std::llround(options.seconds * simulator.frameRate()));
  Frame frame;
  for (std::int64_t n = 0; n < counts.frames; ++n) {
    nowNs = std::llround(simulator.timeOf(n) * 1e9);
    simulator.frame(n, frame);
    if (options.inertial)
      for (const int device : {0, 1})
        input(alg, algorithm::kInertialA + device, simulator.inertialPayloadOf(device, n));

    const std::int64_t call = alg.nextIndex();
    if (!frame.lost) input(alg, simulator.streamType(), frame.payload);
    addTruth(frame, nowNs, alg, frame.lost ? std::nullopt : std::optional(call));

    for (int object = 0; options.queries && object < objectCount(options.productType); ++object) {
      const bool readsStamp = algorithm::readsStamp(options.productType, object);
      algorithm::PoseAnswer answer;
      // The stamp that asks for the filter's state as it is, without extrapolation.
      alg.HandleEvent(object, readsStamp ? &algorithm::kFilterStateStamp : nullptr, &answer);
    }
    counts.packets += frame.lost ? 0 : 1;
    counts.lost += frame.lost ? 1 : 0;
    counts.corrupted += frame.corrupted && !frame.lost ? 1 : 0;
    counts.wrongCheck += frame.wrongCheck && !frame.lost ? 1 : 0;
    counts.blobs += static_cast<std::int64_t>(frame.blobs.size());
    counts.blobsCut += frame.blobsCut;
    if (progress) progress(n + 1, counts.frames);
  }
  counts.calls = alg.nextIndex();
}

}  // namespace

Framing framingFor(int productType) {
  return algorithm::hasHeads(productType) ? Framing::kStamped : Framing::kPlain;
}

SessionCounts recordSimulation(
    const Simulator& simulator, const SimulatorOptions& simulation, const SessionOptions& options,
    const SessionDescription& description, algorithm::AlgBase& library, const std::string& path,
    const std::function<void(std::int64_t done, std::int64_t total)>& progress) {
  std::int64_t nowNs = 0;
  recording::RecordingAlgOptions recorder;
  recorder.overwrite = true;
  recorder.waitWhenFull = true;
  recorder.clock = [&nowNs] { return nowNs; };
  recorder.clockName = "simulated";
  recorder.measureDurations = false;  // the only thing that would differ between two runs
  recorder.facts = {{"source", "simulation"},
                    {"simulation", describe(simulation, options, description)}};
  if (!simulation.error.none() || !simulation.drift.none())
    recorder.facts[recording::kTrueCalibration] = hexOf(simulator.trueCalibration(0));
  if (!simulation.drift.none())
    recorder.facts[recording::kTrueCalibrationAtEnd] =
        hexOf(simulator.trueCalibration(options.seconds));

  if (!description.bodyText.empty()) recorder.facts[kTrueBody] = description.bodyText;

  SessionCounts counts;
  Host host(counts);
  recording::RecordingAlg alg(&library, path, recorder);
  alg.SetLogCallback(&host);
  alg.SetDataCallback(&host);
  drive(simulator, options, alg, nowNs, counts, progress);
  const recording::RecorderStatus status = alg.close();
  if (!status.error.empty() || status.dropped > 0)
    throw recording::RecordingError(path, "writing failed: " + status.error);
  return counts;
}

}  // namespace sim
