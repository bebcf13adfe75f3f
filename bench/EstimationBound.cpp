#include "EstimationBound.h"

#include <alg_kit/estimate/Information.h>
#include <alg_kit/estimate/PixelEquations.h>
#include <alg_kit/estimate/Track.h>

#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <vector>

namespace bench {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;
using estimate::MotionState;
using estimate::PositionInformation;
using Matrix9d = Eigen::Matrix<double, 9, 9>;

constexpr double kWindow = 0.5;     // seconds, over which jerk and tremor are averaged
constexpr std::size_t kCoarse = 6;  // frames
/// seconds: within it accelerations fade. Shorter than the first, the steps' noise is not the
/// models'; longer than the second is not at all.
constexpr double kLeastMemory = 0.05, kMostMemory = 1e4;

/// How a moment's motion changes.
struct Strength {
  double jerk = 0;     ///< mm^2/s^5
  double tremor2 = 0;  ///< mm^2
  double memory = kMostMemory;
};

/// Mean square, per axis, of the differences of the order 2 or 3 of positions `step` frames apart,
/// around frame n.
double roughness(const std::vector<Vector3d>& path, std::size_t n, std::size_t order,
                 std::size_t step, std::size_t half) {
  const std::size_t reach = half + order * step / 2 + 1;
  const std::size_t from = n > reach ? n - reach : 0, to = std::min(path.size(), n + reach);
  double sum = 0;
  long count = 0;
  for (std::size_t i = from; i + order * step < to; ++i, ++count) {
    const Vector3d second = path[i + 2 * step] - 2 * path[i + step] + path[i];
    const Vector3d difference =
        order == 2
            ? second
            : Vector3d(path[i + 3 * step] - 2 * path[i + 2 * step] + path[i + step] - second);
    sum += difference.squaredNorm() / 3;
  }
  return count > 0 ? sum / static_cast<double>(count) : 0;
}

/// Third differences over t seconds have the variance 11/20 q t^5 from white jerk of density q (the
/// squared norm of the quadratic B-spline), and 1 + 9 + 9 + 1 tremors: two steps tell them apart.
/// Second differences have that of the acceleration, t^4 times, and 1 + 4 + 1 tremors; an
/// acceleration that fades with the time constant m has the variance q m / 2.
Strength strengthAt(const std::vector<Vector3d>& path, std::size_t n, double period) {
  const auto half = static_cast<std::size_t>(kWindow / 2 / period);
  const auto share = [period](std::size_t step) {
    return 11.0 / 20 * std::pow(static_cast<double>(step) * period, 5);
  };
  const double fine = roughness(path, n, 3, 1, half), coarse = roughness(path, n, 3, kCoarse, half);
  Strength result;
  result.jerk = std::max((coarse - fine) / (share(kCoarse) - share(1)), 1.0);
  result.tremor2 = std::max((fine - share(1) * result.jerk) / 20, 0.0);
  const double curved = roughness(path, n, 2, kCoarse, half) - 6 * result.tremor2;
  const double acceleration2 = curved / std::pow(static_cast<double>(kCoarse) * period, 4);
  result.memory = std::min(std::max(2 * acceleration2 / result.jerk, kLeastMemory), kMostMemory);
  return result;
}

/// @param direction  -1 for a filter that runs backwards: its velocity points the other way
Matrix9d wholeOf(const MotionState& s, double direction) {
  Matrix9d whole;
  whole << s.pp, direction * s.pv, s.pa,                     //
      direction * s.pv.transpose(), s.vv, direction * s.va,  //
      s.pa.transpose(), direction * s.va.transpose(), s.aa;
  return whole;
}

class Bounder {
 public:
  Bounder(const sim::Simulator& simulator, double noise)
      : equations_(simulator.rig().calibration),
        noise_(noise),
        period_(1 / simulator.frameRate()) {}

  void add(const std::vector<std::vector<Vector3d>>& markers, std::size_t first, std::size_t last) {
    std::vector<Vector3d> path(markers.front().size(), Vector3d::Zero());
    for (const auto& marker : markers)
      for (std::size_t n = 0; n < path.size(); ++n)
        path[n] += marker[n] / static_cast<double>(markers.size());
    std::vector<Strength> strengths;
    std::vector<PositionInformation> seen;
    for (std::size_t n = 0; n < path.size(); ++n) {
      strengths.push_back(strengthAt(path, n, period_));
      seen.push_back(informationAt(markers, n, path[n]));
    }
    addCausal(path, strengths, seen, first, last);
    // White jerk alone is the same forwards and backwards.
    for (Strength& strength : strengths) strength.memory = kMostMemory;
    addSmoothed(path, strengths, seen, first, last);
    count_ += static_cast<double>(last - first);
  }

  EstimationBound result() const {
    return {std::sqrt(online_ / count_), std::sqrt(ahead_ / count_), std::sqrt(smoothed_ / count_)};
  }

 private:
  using Path = std::vector<Vector3d>;
  using Strengths = std::vector<Strength>;
  using Sightings = std::vector<PositionInformation>;

  void addCausal(const Path& path, const Strengths& strengths, const Sightings& seen,
                 std::size_t first, std::size_t last) {
    MotionState state = beginning(path[0]);
    for (std::size_t n = 0; n < path.size(); ++n) {
      if (n > 0) move(state, strengths[n], path[n]);
      const double error2 = see(state, seen[n], strengths[n]);
      if (n < first || n >= last) continue;
      online_ += error2;
      MotionState later = state;
      std::size_t at = n;
      while (at < std::min(n + kFramesAhead, path.size() - 1)) {
        ++at;
        move(later, strengths[at], path[at]);
      }
      ahead_ += later.pp.trace() + 3 * strengths[at].tremor2;
    }
  }

  void addSmoothed(const Path& path, const Strengths& strengths, const Sightings& seen,
                   std::size_t first, std::size_t last) {
    std::vector<MotionState> before(path.size());  // without the frame's own sighting
    MotionState state = beginning(path[0]);
    for (std::size_t n = 0; n < path.size(); ++n) {
      if (n > 0) move(state, strengths[n], path[n]);
      before[n] = state;
      see(state, seen[n], strengths[n]);
    }
    state = beginning(path.back());
    for (std::size_t n = path.size(); n-- > 0;) {
      if (n + 1 < path.size()) {
        move(state, strengths[n + 1], path[n]);
        const Matrix9d both =
            (wholeOf(before[n], 1).inverse() + wholeOf(state, -1).inverse()).inverse();
        MotionState met;
        met.p = path[n];
        met.pp = both.topLeftCorner<3, 3>();
        const double error2 = see(met, seen[n], strengths[n]);
        if (n >= first && n < last) smoothed_ += error2;
      }
      see(state, seen[n], strengths[n]);
    }
  }

  static MotionState beginning(const Vector3d& at) {
    return estimate::firstState(at, Matrix3d::Identity() * 1e6);
  }

  void move(MotionState& state, const Strength& strength, const Vector3d& to) const {
    estimate::predict(state, estimate::Step(period_, strength.memory), strength.jerk);
    state.p = to;
  }

  /// @return the marker's variance, all axes together, after the sighting
  static double see(MotionState& state, const PositionInformation& seen, const Strength& strength) {
    MotionState marker;
    estimate::fitAndCorrect(state, seen, std::sqrt(strength.tremor2), &marker);
    return marker.pp.trace();
  }

  PositionInformation informationAt(const std::vector<std::vector<Vector3d>>& markers,
                                    std::size_t n, const Vector3d& centre) const {
    std::vector<PositionInformation> each;
    for (const auto& marker : markers) {
      estimate::Sighting sighting;
      for (const int camera : {estimate::kLeft, estimate::kRight})
        if (const auto seen = equations_.project(camera, marker[n]))
          sighting.pixel[camera] = seen->pixel;
      const auto information = equations_.information(sighting, marker[n], noise_);
      if (!information || !sighting.any()) return {};
      each.push_back(*information);
    }
    PositionInformation result =
        each.size() == 2 ? estimate::middleAndOffset(each[0], each[1]).middle : each[0];
    result.at = centre;
    return result;
  }

  const estimate::PixelEquations equations_;
  const double noise_;
  const double period_;
  double online_ = 0, ahead_ = 0, smoothed_ = 0, count_ = 0;
};

}  // namespace

EstimationBound boundAlong(const sim::Simulator& simulator, double seconds, double noise,
                           double warmUp) {
  const auto frames = static_cast<std::size_t>(seconds * simulator.frameRate());
  const auto first = static_cast<std::size_t>(warmUp * simulator.frameRate());
  const sim::Scene& scene = simulator.scene();
  std::vector<std::vector<std::vector<Vector3d>>> paths;  // by object, marker and frame
  for (const sim::SceneObject& object : scene.objects()) paths.emplace_back(object.markers.size());
  for (std::size_t n = 0; n < frames; ++n)
    for (const sim::MarkerTruth& marker :
         scene.at(simulator.timeOf(static_cast<std::int64_t>(n))).markers)
      paths[static_cast<std::size_t>(marker.objectId)][static_cast<std::size_t>(marker.markerIndex)]
          .push_back(marker.position);
  Bounder bounder(simulator, noise);
  for (const auto& markers : paths) bounder.add(markers, first, frames - 1);
  return bounder.result();
}

}  // namespace bench
