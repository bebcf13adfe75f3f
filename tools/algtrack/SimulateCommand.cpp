#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/analysis/Moment.h>
#include <alg_kit/bodies/BodyFile.h>
#include <alg_kit/text/TextFile.h>
#include <sim/BodyScene.h>
#include <sim/RecordedSimulation.h>
#include <sim/Simulator.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/PartialRecording.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/OutputFile.h>
#include <tools/algtrack/terminal/Progress.h>
#include <tools/algtrack/terminal/Table.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace algtrack {
namespace {

constexpr double kMostFrames = 1e7;
constexpr double kLargestBend = 20;  // degrees

struct SimulateOptions {
  std::string output;
  bool force = false;
  bool json = false;

  RigOption rig;
  std::string scene = "moving";
  std::string trajectory;
  std::string body;  ///< file; empty = the built-in objects
  double distance = 1700;
  double start = 0;
  int productType = 1;
  double seconds = 20;
  bool secondsGiven = false;
  std::string framing = "auto";
  bool inertial = false;
  bool noQueries = false;
  int filterMode = 0;
  std::vector<std::string> occlusions;
  std::string bend, drift, focalError, centreError;  ///< as typed; empty = none
  sim::SimulatorOptions simulation;
  std::vector<std::string> notes;  ///< what became of the options, for the summary
};

using analysis::secondsText;

/// OBJECT:FROM-TO, or OBJECT:FROM-TO:left.
sim::Occlusion occlusionFrom(const std::string& text, int objects, double seconds) {
  const auto fail = [&]() -> sim::Occlusion {
    throw std::runtime_error(
        "--occlude: expected OBJECT:FROM-TO or OBJECT:FROM-TO:left (seconds; "
        "object 0 to " +
        std::to_string(objects - 1) + "), found " + text::quoted(text));
  };
  sim::Occlusion occlusion;
  const char* position = text.data();
  const char* const end = position + text.size();
  const auto number = [&](auto& value) {
    const auto [parsed, error] = std::from_chars(position, end, value);
    if (error != std::errc()) return false;
    position = parsed;
    return true;
  };
  const auto skip = [&](char c) { return position != end && *position++ == c; };
  if (!number(occlusion.objectId) || !skip(':') || !number(occlusion.from) || !skip('-') ||
      !number(occlusion.to))
    return fail();
  const std::string camera(position, end);
  if (camera == ":left") occlusion.camera = rig::Camera::kLeft;
  if (camera == ":right") occlusion.camera = rig::Camera::kRight;
  const bool valid = (camera.empty() || occlusion.camera) && occlusion.objectId >= 0 &&
                     occlusion.objectId < objects && occlusion.from >= 0 &&
                     occlusion.from < occlusion.to && std::isfinite(occlusion.to);
  if (!valid) return fail();
  if (occlusion.from >= seconds)
    throw std::runtime_error("--occlude: expected a beginning within the session's " +
                             secondsText(seconds) + ", found " + text::quoted(text));
  return occlusion;
}

sim::Scene sceneFrom(SimulateOptions& options) {
  if (options.trajectory.empty())
    return options.scene == "still"
               ? sim::Scene::still(options.productType)
               : sim::Scene::moving(options.productType, options.simulation.seed);
  sim::Trajectory motion = sim::Trajectory::readTum(options.trajectory);
  if (options.start >= motion.duration())
    throw std::runtime_error(options.trajectory + ": --start: expected less than the motion's " +
                             std::to_string(motion.duration()) + " s, found " +
                             std::to_string(options.start));
  if (motion.repeatedStamps() > 0)
    options.notes.push_back(std::to_string(motion.repeatedStamps()) +
                            " poses of the motion repeat the stamp before them: left out");
  motion = motion.part(options.start, options.seconds).placedInFront(options.distance);
  if (options.secondsGiven && options.seconds > motion.duration())
    options.notes.push_back("the motion lasts " + secondsText(motion.duration()) + ", not the " +
                            secondsText(options.seconds) + " that were asked for");
  options.seconds = std::min(options.seconds, motion.duration());
  if (!options.body.empty())
    return sim::sceneOf(bodies::readBody(options.body, bodies::Pairs::kTaken), options.body,
                        options.productType, std::move(motion));
  return sim::Scene::following(options.productType, std::move(motion));
}

/// RX,RY,RZ or RX,RY,RZ,TX,TY,TZ.
rig::RigError bendFrom(const std::string& option, const std::string& text) {
  rig::RigError error;
  if (text.empty()) return error;
  const std::vector<double> angles = numbersOf(option, text, {3, 6}, kLargestBend);
  error.rotation = Eigen::Vector3d(angles.data());
  if (angles.size() == 6) error.translation = Eigen::Vector3d(angles.data() + 3);
  return error;
}

/// What would alarm who reads the counts for the first time.
void noteNormalReports(const sim::SessionCounts& counts, SimulateOptions& options) {
  const auto reported = [](const auto& message) {
    return message.first.find("check byte error") != std::string::npos;
  };
  if (options.simulation.framing == sim::Framing::kStamped &&
      std::any_of(counts.messages.begin(), counts.messages.end(), reported))
    options.notes.push_back(
        "the message \"check byte error\" is normal for stamped packets: the library looks for the "
        "check byte four bytes behind the device's");
}

/// How the true cameras differ from the calibration that the library gets.
rig::RigError errorFrom(const SimulateOptions& options) {
  rig::RigError error = bendFrom("--bend", options.bend);
  if (!options.focalError.empty()) {
    const auto focal = numbersOf("--focal-error", options.focalError, {1, 2}, 20);
    error.focal = {focal.front(), focal.back()};
  }
  if (!options.centreError.empty()) {
    const auto centre = numbersOf("--centre-error", options.centreError, {2, 4}, 100);
    error.leftCentre = Eigen::Vector2d(centre.data());
    error.rightCentre = Eigen::Vector2d(centre.data() + centre.size() - 2);
  }
  return error;
}

sim::SessionOptions sessionFrom(const SimulateOptions& options) {
  sim::SessionOptions session;
  session.productType = options.productType;
  session.seconds = options.seconds;
  session.inertial = options.inertial;
  session.queries = !options.noQueries;
  session.filterMode = options.filterMode;
  return session;
}

sim::SessionDescription descriptionFrom(const SimulateOptions& options) {
  const auto nameOf = [](const std::string& path) {
    return std::filesystem::path(path).filename().string();
  };
  sim::SessionDescription description;
  if (options.rig.given()) description.calibration = nameOf(options.rig.file);
  description.motion = options.trajectory.empty() ? options.scene : nameOf(options.trajectory);
  if (!options.body.empty()) {
    description.body = nameOf(options.body);
    description.bodyText = bodies::bodyText(bodies::readBody(options.body, bodies::Pairs::kTaken));
  }
  description.occlusions = options.occlusions;
  for (const auto& [name, text] : {std::pair{"bend", &options.bend},
                                   {"drift", &options.drift},
                                   {"focal_error", &options.focalError},
                                   {"centre_error", &options.centreError}})
    if (!text->empty()) description.rigErrors[name] = *text;
  return description;
}

void printSummary(const SimulateOptions& options, const sim::SessionCounts& counts) {
  Facts facts;
  facts.add("frames", "frames", counts.frames);
  facts.add("packets", "packets", counts.packets);
  facts.add("packets lost on the way", "packets_lost", counts.lost);
  facts.add("packets with a corrupted byte", "packets_corrupted", counts.corrupted);
  facts.add("packets with a wrong check byte", "packets_with_wrong_check", counts.wrongCheck);
  facts.add("blobs", "blobs", counts.blobs);
  facts.add("blobs without room in their packet", "blobs_cut", counts.blobsCut);
  facts.add("blocks delivered", "blocks", counts.blocks);
  Json messages = Json::array();
  for (const auto& [text, count] : counts.messages) {
    facts.addText("message \"" + text + "\"", count);
    messages.push_back({{"text", text}, {"count", count}});
  }
  facts.addJson("messages", messages);
  facts.add("calls recorded", "calls", counts.calls);
  facts.addJson("duration_s", options.seconds);
  if (options.json) {
    Json json;
    json["file"] = options.output;
    json["summary"] = facts.json();
    json["notes"] = options.notes;
    printJson(json);
    return;
  }
  facts.print(std::cout);
  for (const std::string& note : options.notes) std::cout << "Note: " << note << ".\n";
  std::cout << "Recording: " << oneLine(options.output) << "\n";
}

void simulate(SimulateOptions options) {
  checkOutputs({options.output, options.json ? "-" : ""},
               {options.trajectory, options.body, options.rig.file}, options.force);
  const rig::StereoRig rig = options.rig.given() ? options.rig.read() : rig::builtInRig();
  const sim::Scene scene = sceneFrom(options);
  if (options.seconds * options.simulation.frameRate > kMostFrames)
    throw std::runtime_error("--seconds: expected at most 10 million frames, found " +
                             std::to_string(options.seconds) + " s at " +
                             std::to_string(options.simulation.frameRate) + " Hz");
  for (const std::string& text : options.occlusions)
    options.simulation.blobs.occlusions.push_back(
        occlusionFrom(text, sim::objectCount(options.productType), options.seconds));
  options.simulation.framing = options.framing == "auto"      ? sim::framingFor(options.productType)
                               : options.framing == "stamped" ? sim::Framing::kStamped
                                                              : sim::Framing::kPlain;
  options.simulation.error = errorFrom(options);
  options.simulation.drift = bendFrom("--drift", options.drift);
  options.simulation.driftSeconds = options.seconds;
  const sim::Simulator simulator(rig, scene, options.simulation);

  PartialRecording partial(options.output, options.force);
  // Kept: the library has no release operation.
  static algorithm::AlgBase* const library = algorithm::AlgFactory::CreateALG(0);
  std::optional<Progress> progress;
  const sim::SessionCounts counts = sim::recordSimulation(
      simulator, options.simulation, sessionFrom(options), descriptionFrom(options), *library,
      partial.path(), [&](std::int64_t done, std::int64_t total) {
        if (!progress) progress.emplace("simulating", total);
        progress->show(done);
      });
  partial.complete();
  noteNormalReports(counts, options);
  if (!isStandardOutput(options.output)) printSummary(options, counts);
}

}  // namespace

void addSimulateCommand(CLI::App& app) {
  const auto options = std::make_shared<SimulateOptions>();
  CLI::App* const command = app.add_subcommand(
      "simulate",
      "Simulates cameras, markers and motion, drives the library with the packets and records\n"
      "everything, with the truth. The same options and seed give the same content.\n"
      "\n"
      "  algtrack simulate -o walk.algrec\n"
      "  algtrack simulate -o hard.algrec --noise 0.1 --dropouts 0.02 --splits 0.05 --strays 0.5\n"
      "  algtrack simulate -o room.algrec --trajectory room.tum --calibration camchain.yaml\n"
      "  algtrack simulate -o bent.algrec --seconds 60 --product-type 2 --noise 0.05 --bend "
      "0.3,-0.4,0.25\n"
      "  algtrack simulate -o gap.algrec --product-type 2 --occlude 3:2.5-4 --occlude "
      "0:1-2:left\n");
  auto& sim = options->simulation;
  const auto probability = numberFrom(0, 1);
  command->add_option("-o,--output", options->output, "the recording to write")->required();
  command->add_flag("--force", options->force, "replace an existing file");
  command->add_flag("--json", options->json, "print the summary as JSON");

  addRigOption(*command, options->rig,
               "the camera pair, in any format that `algtrack calibration` reads (built in)");
  CLI::Option* const scene = command->add_option("--scene", options->scene, "built-in motion")
                                 ->check(oneOf({"moving", "still"}))
                                 ->capture_default_str();
  CLI::Option* const trajectory =
      command
          ->add_option("--trajectory", options->trajectory,
                       "measured motion: lines of t tx ty tz qx qy qz qw (seconds, metres), "
                       "moved in front of the cameras")
          ->excludes(scene);
  CLI::Option* const body =
      command
          ->add_option(
              "--body", options->body,
              "the markers of this body follow the trajectory, in the place of the built-in "
              "objects: JSON as `algtrack body learn` writes it")
          ->needs(trajectory);
  command->add_option("--distance", options->distance, "mm, mean distance of the measured motion")
      ->check(numberFrom(100, 100000))
      ->capture_default_str()
      ->needs(trajectory);
  command->add_option("--start", options->start, "seconds of the measured motion to leave out")
      ->check(numberFrom(0, 1e6))
      ->capture_default_str()
      ->needs(trajectory);
  command->add_option("--product-type", options->productType, "0, 1 or 2")
      ->check(oneOf({"0", "1", "2"}))
      ->capture_default_str();
  CLI::Option* const seconds =
      command->add_option("--seconds", options->seconds, "length; at most the measured motion's")
          ->check(numberFrom(0.001, 1e6))
          ->capture_default_str();
  command->add_option("--rate", sim.frameRate, "frames per second")
      ->check(numberFrom(0.1, 10000))
      ->capture_default_str();
  command
      ->add_option("--framing", options->framing,
                   "plain packets (stream type 0), stamped ones (2), or those that feed the pose "
                   "filters which the queries read (auto: 2 for product types 0 and 1, else 0)")
      ->check(oneOf({"auto", "plain", "stamped"}))
      ->capture_default_str();
  command->add_flag("--inertial", options->inertial,
                    "inertial samples of objects 0 and 1 (stream types 3, 4) before every packet");
  command->add_flag("--no-queries", options->noQueries,
                    "do not ask for every object's pose after every frame");
  command
      ->add_option("--filter-mode", options->filterMode,
                   "of the pose filters: -1 off, 1 large measurement noise, else small")
      ->check(wholeNumberFrom(-1, 1000))
      ->capture_default_str();
  command->add_option("--marker-size", sim.blobs.markerDiameter, "mm, diameter of the markers")
      ->check(numberFrom(0.1, 1000))
      ->capture_default_str();
  command
      ->add_option("--emission", sim.blobs.emissionAngle,
                   "degrees: a marker of the body is unseen by a camera that is further from where "
                   "it faces (the file's `facing`, or away from the body's middle)")
      ->check(numberFrom(1, 180))
      ->capture_default_str()
      ->needs(body);
  command->add_option("--noise", sim.blobs.pixelNoise, "px, standard deviation of a blob's centre")
      ->check(numberFrom(0, 100))
      ->capture_default_str();
  command
      ->add_option("--dropouts", sim.blobs.dropoutProbability,
                   "probability that a camera misses a marker in a frame")
      ->check(probability)
      ->capture_default_str();
  command
      ->add_option("--occlude", options->occlusions,
                   "hide an object: OBJECT:FROM-TO (seconds), with :left or :right from one camera "
                   "only; may be given again")
      ->take_all()
      ->expected(1, 1000)
      ->allow_extra_args(false);
  command
      ->add_option("--splits", sim.blobs.splitProbability,
                   "probability that a blob comes in two halves")
      ->check(probability)
      ->capture_default_str();
  command
      ->add_option("--strays", sim.blobs.strayRate,
                   "mean number of blobs without a marker, per camera and frame")
      ->check(numberFrom(0, 100))
      ->capture_default_str();
  command
      ->add_option("--reflections", sim.blobs.reflectionProbability,
                   "probability that a marker has a dimmer image of the same id nearby")
      ->check(probability)
      ->capture_default_str();
  constexpr const char* kOneOrBoth = "; one value is both cameras'";
  const CLI::Validator notEmpty(
      [](std::string& text) { return text.empty() ? "expected numbers, found none" : ""; }, "");
  command
      ->add_option("--bend", options->bend,
                   "RX,RY,RZ[,TX,TY,TZ], degrees: the true rotation between the cameras and the "
                   "true direction of translation differ from the calibration")
      ->check(notEmpty);
  command
      ->add_option("--drift", options->drift,
                   "RX,RY,RZ[,TX,TY,TZ], degrees: the same, growing from nothing to this at the "
                   "end")
      ->check(notEmpty);
  command
      ->add_option(
          "--focal-error", options->focalError,
          std::string("LEFT[,RIGHT], per cent: the true focal lengths are longer") + kOneOrBoth)
      ->check(notEmpty);
  command
      ->add_option("--centre-error", options->centreError,
                   std::string("X,Y[,X,Y], px: the true principal points lie elsewhere; left, "
                               "right") +
                       kOneOrBoth)
      ->check(notEmpty);
  command->add_option("--loss", sim.faults.lossProbability, "probability that a packet is lost")
      ->check(probability)
      ->capture_default_str();
  command
      ->add_option("--corrupt", sim.faults.corruptProbability,
                   "probability that a byte of a packet is changed")
      ->check(probability)
      ->capture_default_str();
  command
      ->add_option("--wrong-check", sim.faults.wrongCheckProbability,
                   "probability that a packet's check byte is wrong")
      ->check(probability)
      ->capture_default_str();
  command->add_option("--seed", sim.seed, "of everything random")
      ->check(wholeNumber())
      ->capture_default_str();
  command->callback([options, seconds] {
    options->secondsGiven = seconds->count() > 0;
    simulate(*options);
  });
}

}  // namespace algtrack
