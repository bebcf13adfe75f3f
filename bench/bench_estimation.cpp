// Holds the estimator and the smoother against the library's answers: errors, predictions, lag,
// jitter at rest, stated covariances, on generated and measured motion. Prints a table and, below a
// line that misses a bar, what was found, what is asked and how far a filter can go at all
// (--bounds: below every line).
//   bench_estimation [--seconds S] [--calibration FILE] [--motion FILE.tum] [--quick]
//                    [--bounds] [--only TEXT]
// --only takes the lines whose motion, product type, noise and seed ("hand A 0 0.02 1") have TEXT.
#include <alg_kit/calibration/CalibrationFile.h>
#include <tests/support/EstimationTrial.h>

#include "EstimationBound.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing_support::TrialResult;

constexpr double kNoises[] = {0.02, 0.05, 0.1};
constexpr double kDistance = 1700;  // mm, of measured motion
constexpr double kRestSeconds = 20;

// Bars. `kHard` is added to the factors with dropouts, occlusions and strays.
constexpr double kOnline = 0.6, kPredicted = 0.4, kPredictedByOnline = 1.25, kSmoothed = 0.3;
constexpr double kLag = 0.002, kJitter = 0.5, kLeastNees = 0.7, kMostNees = 1.4, kHard = 0.1;

struct Case {
  std::string name;
  rig::StereoRig rig;
  std::function<sim::Scene(int productType, std::uint64_t seed)> scene;
  bool atRest = false;
  bool hard = false;
};

struct Tally {
  int bars = 0;
  int missed = 0;
};

sim::Simulator simulatorOf(const Case& trial, int type, double noise, std::uint64_t seed,
                           double seconds) {
  sim::SimulatorOptions options;
  options.seed = seed;
  options.blobs.pixelNoise = noise;
  options.framing = type == 2 ? sim::Framing::kPlain : sim::Framing::kStamped;
  if (trial.hard) {
    options.blobs.dropoutProbability = 0.05;
    options.blobs.strayRate = 0.3;
    for (int object = 0; object < sim::objectCount(type); ++object)
      for (double from = 5 + object; from + 1 < seconds; from += 10) {
        sim::Occlusion occlusion;
        occlusion.objectId = object;
        occlusion.from = from;
        occlusion.to = from + 1;
        options.blobs.occlusions.push_back(occlusion);
      }
  }
  return {trial.rig, trial.scene(type, seed), options};
}

/// A bar that is missed.
struct Miss {
  const char* name;
  double found, asked;
};

void hold(Tally& tally, std::vector<Miss>& misses, const char* name, double found, double least,
          double most) {
  ++tally.bars;
  if (found >= least && found <= most) return;
  ++tally.missed;
  misses.push_back({name, found, found < least ? least : most});
}

/// An error with what is asked of it and how small it can be, mm.
struct Bounded {
  const char* name;
  double found, asked;
  double bench::EstimationBound::*bound;
};

Tally run(algorithm::AlgBase& library, const Case& trial, int type, double noise,
          std::uint64_t seed, double seconds, bool bounds) {
  Tally tally;
  const sim::Simulator simulator = simulatorOf(trial, type, noise, seed, seconds);
  const TrialResult r = testing_support::runTrial(library, simulator, seconds, {});
  const double more = trial.hard ? kHard : 0;
  std::vector<Miss> misses;
  if (trial.atRest) {
    hold(tally, misses, "jitter", r.onlineJitter / r.answeredJitter, 0, kJitter);
  } else {
    hold(tally, misses, "lag", std::abs(r.onlineLag), 0, kLag);
  }
  const Bounded errors[] = {
      {"online", r.online, (kOnline + more) * r.answered, &bench::EstimationBound::online},
      {"ahead", r.predicted,
       std::max((kPredicted + more) * r.held, (kPredictedByOnline + more) * r.online),
       &bench::EstimationBound::ahead},
      {"smoothed", r.smoothed, (kSmoothed + more) * r.answered, &bench::EstimationBound::smoothed}};
  for (const Bounded& error : errors) hold(tally, misses, error.name, error.found, 0, error.asked);
  hold(tally, misses, "nees", r.onlineNees, kLeastNees, kMostNees);
  hold(tally, misses, "smoothed nees", r.smoothedNees, kLeastNees, kMostNees);
  std::printf(
      "%-22s %d %4.2f %llu %6ld %4ld | %6.2f %6.2f | %6.2f %.2f | %6.2f %.2f | %6.2f %.2f |",
      trial.name.c_str(), type, noise, static_cast<unsigned long long>(seed), r.frames, r.missing,
      r.delivered, r.answered, r.online, r.online / r.answered, r.predicted, r.predicted / r.held,
      r.smoothed, r.smoothed / r.answered);
  std::printf(" %5.2f %5.2f | %.2f | %.2f %.2f %.2f | %.3f | %.2f |", r.answeredLag * 1e3,
              r.onlineLag * 1e3, r.answeredJitter > 0 ? r.onlineJitter / r.answeredJitter : 0,
              r.onlineNees, r.predictedNees, r.smoothedNees, r.noise, r.microseconds);
  for (const Miss& miss : misses) std::printf(" %s %.3g (%.3g)", miss.name, miss.found, miss.asked);
  std::printf("\n");
  if (!misses.empty() || bounds) {
    const bench::EstimationBound bound = bench::boundAlong(simulator, seconds, noise);
    for (const Bounded& error : errors)
      if (bounds || error.found > error.asked)
        std::printf("%22s %s: found %.3f mm, asked %.3f mm, bound %.3f mm\n", "", error.name,
                    error.found, error.asked, bound.*error.bound);
  }
  return tally;
}

/// Runs a session in a process of its own: the library's pipeline is one per process and remembers
/// the sessions before, so that its answers, and with them what is asked, would depend on those.
/// @throws std::runtime_error if the process fails
Tally inItsOwnProcess(const std::function<Tally()>& session) {
  int ends[2];
  std::fflush(stdout);
  if (pipe(ends) != 0) throw std::runtime_error("expected a pipe, found none");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("expected a new process, found none");
  if (child == 0) {
    int status = 1;
    try {
      const Tally tally = session();
      std::fflush(stdout);
      status = write(ends[1], &tally, sizeof tally) == sizeof tally ? 0 : 1;
    } catch (const std::exception& error) {
      std::fprintf(stderr, "bench_estimation: %s\n", error.what());
    }
    _exit(status);
  }
  close(ends[1]);
  Tally tally;
  const bool told = read(ends[0], &tally, sizeof tally) == sizeof tally;
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!told || status != 0) throw std::runtime_error("a session did not end");
  return tally;
}

}  // namespace

int main(int argc, char** argv) try {
  double seconds = 60;
  std::string file, motion, only;
  bool quick = false, bounds = false;
  for (int i = 1; i < argc; ++i) {
    const auto is = [&](const char* name) { return std::strcmp(argv[i], name) == 0; };
    if (is("--quick")) {
      quick = true;
    } else if (is("--bounds")) {
      bounds = true;
    } else if (i + 1 < argc && is("--seconds")) {
      seconds = std::atof(argv[++i]);
    } else if (i + 1 < argc && is("--calibration")) {
      file = argv[++i];
    } else if (i + 1 < argc && is("--only")) {
      only = argv[++i];
    } else if (i + 1 < argc && is("--motion")) {
      motion = argv[++i];
    } else {
      std::fprintf(stderr,
                   "bench_estimation: %s: expected --seconds S, --calibration FILE, "
                   "--motion FILE, --quick, --bounds or --only TEXT\n",
                   argv[i]);
      return 2;
    }
  }
  std::vector<Case> cases;
  std::vector<std::pair<std::string, rig::StereoRig>> rigs{{"built in", rig::builtInRig()}};
  if (!file.empty()) {
    const auto loaded = calibration::readCalibration({file});
    rigs.emplace_back("given", rig::StereoRig{loaded.calibration, loaded.width, loaded.height});
  }
  std::optional<sim::Trajectory> trajectory;
  if (!motion.empty()) {
    trajectory = sim::Trajectory::readTum(motion);
    trajectory = trajectory->part(0, seconds).placedInFront(kDistance);
    seconds = std::min(seconds, trajectory->duration());
  }
  for (const auto& [name, rig] : rigs)
    for (const bool hard : {false, true}) {
      const std::string tail =
          (name == "built in" ? " A" : " B") + std::string(hard ? " hard" : "");
      cases.push_back({"moving" + tail, rig, &sim::Scene::moving, false, hard});
      if (trajectory)
        cases.push_back(
            {"hand" + tail, rig,
             [&](int type, std::uint64_t) { return sim::Scene::following(type, *trajectory); },
             false, hard});
      if (!hard)
        cases.push_back({"still" + tail, rig,
                         [](int type, std::uint64_t) { return sim::Scene::still(type); }, true,
                         false});
    }
  Tally all;
  std::printf(
      "A: the built-in pair, B: %s. Errors in mm, lags in ms (answers, online), squared "
      "errors in stated variances (online, ahead, smoothed).\n",
      file.empty() ? "none" : file.c_str());
  std::printf(
      "%-22s t px   s frames miss | deliv  answer | online  of  | ahead   of  | smooth  of  "
      "|  lag   lag  | jit  | nees           | noise | us   | missed bars\n",
      "motion");
  for (const Case& trial : cases)
    for (const int type : {0, 1, 2})
      for (const double noise : kNoises)
        for (const std::uint64_t seed : {1u, 2u}) {
          if (quick && seed == 2) continue;
          char line[64];
          std::snprintf(line, sizeof line, "%s %d %.2f %llu", trial.name.c_str(), type, noise,
                        static_cast<unsigned long long>(seed));
          if (std::string(line).find(only) == std::string::npos) continue;
          const Tally tally = inItsOwnProcess([&] {
            return run(*algorithm::AlgFactory::CreateALG(0), trial, type, noise, seed,
                       trial.atRest ? std::min(seconds, kRestSeconds) : seconds, bounds);
          });
          all.bars += tally.bars;
          all.missed += tally.missed;
        }
  std::printf("%d of %d bars missed\n", all.missed, all.bars);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_estimation: %s\n", error.what());
  return 1;
}
