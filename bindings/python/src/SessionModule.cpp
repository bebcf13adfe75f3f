// Sessions made and played again, each with a library of its own.
#include <alg_factory/api/Version.h>
#include <alg_kit/analysis/MismatchCause.h>
#include <alg_kit/analysis/ReplayVerdict.h>
#include <alg_kit/analysis/ReportMaker.h>
#include <alg_kit/bodies/BodyFile.h>
#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/recording/ReRecording.h>
#include <alg_kit/recording/UnitCursor.h>
#include <alg_kit/report/ReportJson.h>
#include <alg_kit/report/ReportPage.h>
#include <alg_kit/session/Player.h>
#include <alg_kit/trace/FreshAlg.h>
#include <bindings/python/src/Arrays.h>
#include <bindings/python/src/Parts.h>
#include <bindings/python/src/RecordingFile.h>
#include <pybind11/stl.h>
#include <sim/BodyScene.h>
#include <sim/RecordedSimulation.h>

#include <array>
#include <fstream>
#include <mutex>
#include <optional>

namespace py = pybind11;

namespace bindings {
namespace {

constexpr std::int64_t kTickEvery = 4096;  // calls

/// Plays a recording through a player. `take` gets every call as recorded and as it came.
template <typename Before, typename Take>
void play(const recording::RecordingReader& reader, session::Player& player, const Before& before,
          const Take& take) {
  recording::UnitCursor units(reader.entries());
  std::int64_t calls = 0;
  for (session::Unit unit; units.next(unit);) {
    before(unit[0].call);
    const session::Unit& played = player.play(unit);
    for (std::size_t i = 0; i < unit.size(); ++i) take(unit[i], played[i]);
    if (++calls % kTickEvery == 0) checkInterrupt();
  }
}

void replay(const RecordingFile& file, const std::string& path,
            const std::optional<int>& productType, const std::optional<std::string>& calibration,
            const std::optional<int>& filterMode, const std::map<std::string, std::string>& facts) {
  const std::lock_guard<std::mutex> lock(file.mutex());
  const recording::RecordingReader& reader = file.reader();
  session::WhatIf whatIf;
  whatIf.productType = productType;
  whatIf.filterMode = filterMode;
  if (calibration)
    whatIf.calibration = calibration::readRecord(*calibration, "calibration").calibration;
  const bool addFilterMode = filterMode && reader.callCount(session::CallKind::kSetFilterMode) == 0;
  trace::FreshAlg library;
  session::Player player(&library, whatIf, addFilterMode);
  recording::ReRecording recording(reader, player, &library, &library, path, facts);
  play(
      reader, player, [&](const session::Call& call) { recording.willPlay(call); },
      [](const session::Entry&, const session::Entry&) {});
  const recording::RecorderStatus status = recording.finish();
  if (!status.error.empty() || status.dropped > 0)
    throw recording::RecordingError(path, "writing failed: " + status.error);
}

/// What a comparison with today's library found.
struct Verification {
  std::optional<analysis::ReplayVerdict::Parting> parting;
  std::string text;
};

Verification verifyAll(const RecordingFile& file) {
  const std::lock_guard<std::mutex> lock(file.mutex());
  const recording::RecordingReader& reader = file.reader();
  trace::FreshAlg library;
  session::Player player(&library);
  analysis::ReplayVerdict verdict;
  analysis::Completeness completeness;
  analysis::MomentCounter moments;
  analysis::Moment at{-1, -1, 0};
  play(
      reader, player, [](const session::Call&) {},
      [&](const session::Entry& recorded, const session::Entry& played) {
        at.seconds = moments.secondsOf(recorded.call);
        if (const auto moment = moments.next(recorded.call)) at = *moment;
        completeness.add(recorded);
        verdict.compare(&recorded, &played, at, false);
      });
  Verification result;
  if (verdict.differing() == 0) return result;
  result.parting = verdict.inOutcomes();
  result.text = reader.path() + ": " + verdict.text() + "; " + std::to_string(verdict.differing()) +
                " of " + std::to_string(verdict.compared()) + " calls differ: " +
                analysis::causeOfMismatch(reader.metadata(), completeness, alg_factory_version());
  return result;
}

/// None, or where recording and library part.
py::object verify(const RecordingFile& file) {
  Verification found;
  {
    const py::gil_scoped_release free;
    found = verifyAll(file);
  }
  if (!found.parting) return py::none();
  const auto& parting = *found.parting;
  py::dict result;
  result["text"] = found.text;
  result["call"] = parting.call.index;
  result["packet"] = parting.at.packet;
  result["time"] = parting.at.seconds;
  result["field"] = parting.difference.field;
  result["recorded"] = parting.difference.expected;
  result["replayed"] = parting.difference.found;
  return result;
}

/// Reads the options of simulate one by one.
class Options {
 public:
  explicit Options(const py::dict& options) : options_(options) {}
  template <typename Value>
  Value get(const char* name) const {
    return py::cast<Value>(options_[name]);
  }
  template <typename Value>
  std::optional<Value> optional(const char* name) const {
    return options_.contains(name) && !options_[name].is_none() ? std::optional(get<Value>(name))
                                                                : std::nullopt;
  }

 private:
  const py::dict& options_;
};

rig::RigError bendFrom(const std::optional<std::array<double, 6>>& bend) {
  rig::RigError error;
  if (!bend) return error;
  error.rotation = Eigen::Vector3d(bend->data());
  error.translation = Eigen::Vector3d(bend->data() + 3);
  return error;
}

sim::SimulatorOptions simulationFrom(const Options& options, const sim::SessionOptions& session) {
  sim::SimulatorOptions result;
  result.frameRate = options.get<double>("rate");
  result.seed = options.get<std::uint64_t>("seed");
  result.blobs.markerDiameter = options.get<double>("marker_size");
  result.blobs.emissionAngle = options.get<double>("emission");
  result.blobs.pixelNoise = options.get<double>("noise");
  result.blobs.dropoutProbability = options.get<double>("dropouts");
  result.blobs.splitProbability = options.get<double>("splits");
  result.blobs.strayRate = options.get<double>("strays");
  result.blobs.reflectionProbability = options.get<double>("reflections");
  result.faults.lossProbability = options.get<double>("loss");
  result.faults.corruptProbability = options.get<double>("corrupt");
  result.faults.wrongCheckProbability = options.get<double>("wrong_check");
  const std::string framing = options.get<std::string>("framing");
  result.framing = framing == "auto"      ? sim::framingFor(session.productType)
                   : framing == "stamped" ? sim::Framing::kStamped
                                          : sim::Framing::kPlain;
  using Occlusion = std::tuple<int, double, double, std::optional<std::string>>;
  for (const auto& [object, from, to, camera] : options.get<std::vector<Occlusion>>("occlude")) {
    sim::Occlusion& occlusion = result.blobs.occlusions.emplace_back();
    occlusion.objectId = object;
    occlusion.from = from;
    occlusion.to = to;
    if (camera) occlusion.camera = *camera == "left" ? rig::Camera::kLeft : rig::Camera::kRight;
  }
  result.error = bendFrom(options.optional<std::array<double, 6>>("bend"));
  if (const auto focal = options.optional<std::array<double, 2>>("focal_error"))
    result.error.focal = Eigen::Vector2d(focal->data());
  if (const auto centre = options.optional<std::array<double, 4>>("centre_error")) {
    result.error.leftCentre = Eigen::Vector2d(centre->data());
    result.error.rightCentre = Eigen::Vector2d(centre->data() + 2);
  }
  result.drift = bendFrom(options.optional<std::array<double, 6>>("drift"));
  result.driftSeconds = session.seconds;
  return result;
}

py::dict simulate(const std::string& path, const py::dict& given) {
  const Options options(given);
  sim::SessionOptions session;
  session.productType = options.get<int>("product_type");
  session.seconds = options.get<double>("seconds");
  session.inertial = options.get<bool>("inertial");
  session.queries = options.get<bool>("queries");
  session.filterMode = options.get<int>("filter_mode");
  sim::SessionDescription description;
  description.occlusions = options.get<std::vector<std::string>>("occlusion_texts");
  description.rigErrors = options.get<std::map<std::string, std::string>>("rig_error_texts");
  description.calibration = options.get<std::string>("calibration_name");
  description.motion = options.get<std::string>("motion_name");
  description.body = options.get<std::string>("body_name");

  rig::StereoRig rig = rig::builtInRig();
  if (const auto record = options.optional<std::string>("calibration")) {
    rig.calibration = calibration::readRecord(*record, "calibration").calibration;
    rig.width = options.get<int>("width");
    rig.height = options.get<int>("height");
  }
  const auto seed = options.get<std::uint64_t>("seed");
  std::optional<sim::Scene> scene;
  if (const auto trajectory = options.optional<std::string>("trajectory")) {
    const sim::Trajectory motion = sim::Trajectory::readTum(*trajectory)
                                       .part(options.get<double>("start"), session.seconds)
                                       .placedInFront(options.get<double>("distance"));
    session.seconds = std::min(session.seconds, motion.duration());
    const auto body = options.optional<bodies::Body>("body");
    scene = body ? sim::sceneOf(*body, options.get<std::string>("body_said"), session.productType,
                                motion)
                 : sim::Scene::following(session.productType, motion);
    if (body) description.bodyText = bodies::bodyText(*body);
  } else {
    scene = options.get<std::string>("scene") == "still"
                ? sim::Scene::still(session.productType)
                : sim::Scene::moving(session.productType, seed);
  }
  const sim::SimulatorOptions simulation = simulationFrom(options, session);

  sim::SessionCounts counts;
  {
    const py::gil_scoped_release free;
    const sim::Simulator simulator(rig, *scene, simulation);
    trace::FreshAlg library;
    counts = sim::recordSimulation(simulator, simulation, session, description, library, path,
                                   [](std::int64_t done, std::int64_t) {
                                     if (done % kTickEvery == 0) checkInterrupt();
                                   });
  }
  py::dict result;
  result["frames"] = counts.frames;
  result["packets"] = counts.packets;
  result["packets_lost"] = counts.lost;
  result["packets_corrupted"] = counts.corrupted;
  result["packets_with_wrong_check"] = counts.wrongCheck;
  result["blobs"] = counts.blobs;
  result["blobs_cut"] = counts.blobsCut;
  result["blocks"] = counts.blocks;
  result["calls"] = counts.calls;
  result["messages"] = counts.messages;
  result["duration_s"] = session.seconds;
  return result;
}

/// The report's numbers as JSON; with a path the page as well.
std::string report(const RecordingFile& file, const std::optional<std::string>& page,
                   const std::vector<bodies::Body>& bodies, const std::optional<int>& object,
                   const std::optional<double>& from, const std::optional<double>& to) {
  if (page && !report::hasPage())
    throw std::runtime_error("this build carries no report page (npm could not provide it)");
  std::vector<std::string> names;
  for (const bodies::Body& body : bodies) names.push_back(body.name);
  bodies::requireOwnIds(bodies, names);
  const std::lock_guard<std::mutex> lock(file.mutex());
  trace::FreshAlg library;
  analysis::ReportRange range;
  range.object = object;
  range.time = {from, to};
  std::int64_t steps = 0;
  const analysis::Report made = analysis::makeReport(file.reader(), {}, range, bodies, library,
                                                     [&](const char*, std::int64_t, std::int64_t) {
                                                       if (++steps % kTickEvery == 0)
                                                         checkInterrupt();
                                                     });
  if (page) {
    std::ofstream stream(*page, std::ios::binary);
    report::writePage(stream, made.numbers, made.curves);
    stream.close();
    if (!stream) throw std::runtime_error(*page + ": writing failed");
  }
  // Texts in a recording may be anything.
  return report::jsonOf(made.numbers, file.reader().path())
      .dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace

void addSessions(py::module_& module) {
  const py::call_guard<py::gil_scoped_release> free;
  module.def("replay", replay, free);
  module.def("verify", verify);
  module.def("simulate", simulate);
  module.def("report", report, free);
}

}  // namespace bindings
