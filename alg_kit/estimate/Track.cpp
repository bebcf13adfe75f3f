#include <alg_kit/estimate/Information.h>
#include <alg_kit/estimate/Track.h>

#include <Eigen/LU>
#include <algorithm>
#include <cmath>

namespace estimate {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

constexpr int kTrial = 3;        // frames until a track is no longer doubted
constexpr int kMostRefused = 3;  // frames in a row that begin the track anew
/// Seconds without light after which one camera's alone does not bring the object back: by then it
/// may be anywhere in a good part of the image, and strays are there too.
constexpr double kBlind = 0.1;
/// Of the distance: the deviation along the ray beyond which one camera's light is not used. Its
/// equations, straight at a depth that is only guessed, would lead astray.
constexpr double kBlurred = 0.05;
constexpr double kFirstSpeed = 1000;    // mm/s, standard deviation per axis at the beginning
constexpr double kFirstChange = 10000;  // mm/s^2
constexpr double kLargeStep = 0.01;     // of the distance: linearise again
constexpr std::size_t kMostTried = 8;   // candidates per camera for a beginning
constexpr double kSmallest = 5, kLargest = 500;  // mm, length of the two-point object
constexpr double kUsualLength = 200;  // mm, beyond which two markers hardly belong together

Sighting sightingOf(const Candidate* left, const Candidate* right) {
  Sighting sighting;
  if (left != nullptr) sighting.pixel[kLeft] = left->pixel;
  if (right != nullptr) sighting.pixel[kRight] = right->pixel;
  return sighting;
}

struct Beginning {
  Sighting sighting;
  Vector3d point = Vector3d::Zero();
  PositionInformation information;
  double miss2 = 0;
  bool valid = false;
};

}  // namespace

MotionState firstState(const Vector3d& position, const Matrix3d& covariance) {
  MotionState state;
  state.p = position;
  state.pp = covariance;
  state.vv = Matrix3d::Identity() * kFirstSpeed * kFirstSpeed;
  state.aa = Matrix3d::Identity() * kFirstChange * kFirstChange;
  return state;
}

Outcome Track::feed(double now, double elapsed, const ObjectCandidates& candidates) {
  pass(now, elapsed);
  const bool seen = candidates[kLeft].size() > 0 || candidates[kRight].size() > 0;
  if (!seen) return {Refusal::kNotSeen};
  if (!state_.alive) return begin(now, candidates);
  blind_ = now - state_.lastSeen > kBlind || isBlurred();
  const Outcome outcome = twoPoint_ ? followTwo(candidates) : followOne(candidates);
  if (outcome.refusal == Refusal::kNone) {
    state_.lastSeen = now;
    state_.cameras = outcome.cameras;
    if (outcome.cameras == 2) state_.lastPair = now;
    ++accepted_;
    state_.confirmed = true;
    if (!outcome.pairElsewhere) {
      refused_ = 0;
      return outcome;
    }
  }
  // A track that its object has left: where a pair keeps being elsewhere, the object is there.
  if (outcome.refusal != Refusal::kOffTrack && !outcome.pairElsewhere) return outcome;
  ++refused_;
  if (accepted_ >= kTrial && refused_ < kMostRefused) return outcome;
  const TrackState before = state_;
  const Outcome again = begin(now, candidates);
  if (again.refusal == Refusal::kNone) return again;
  state_ = before;
  return outcome;
}

void Track::pass(double now, double elapsed) {
  state_.cameras = 0;
  if (!state_.alive) return;
  if (now - state_.lastPair > settings_.bridge) {
    end();
    return;
  }
  state_.centre.predict(elapsed);
  centre_ = state_.centre.place();
  if (!state_.hasOffset) return;
  state_.offset.predict(elapsed);
  offset_ = state_.offset.place();
  if (!offsetIsKnown()) end();
}

void Track::end() {
  state_.alive = state_.confirmed = false;
  state_.hasOffset = false;
  state_.leaning = false;
  spacing_.clear();
  accepted_ = refused_ = 0;
}

/// Bridged for long, the offset is no better known than the markers are apart: then nothing tells
/// one from the other.
bool Track::offsetIsKnown() const {
  const double apart2 = 4 * offset_.p.squaredNorm();
  return apart2 < kLargest * kLargest && offset_.pp.trace() < apart2;
}

bool Track::isBlurred() const {
  const double distance2 = centre_.p.squaredNorm();
  return centre_.p.dot(centre_.pp * centre_.p) > kBlurred * kBlurred * distance2 * distance2;
}

std::optional<PositionInformation> Track::informationAt(const Sighting& sighting,
                                                        const Vector3d& at) const {
  auto information = equations_.information(sighting, at, settings_.noise);
  straighten(information, sighting, at);
  return information;
}

/// Where the pair meets far from `at`, the information is to be that from where it meets: the
/// equations are not straight.
void Track::straighten(std::optional<PositionInformation>& information, const Sighting& sighting,
                       const Vector3d& at) const {
  if (!sighting.both()) return;
  if (information && information->determined) {
    const Vector3d change = information->covariance * information->pull;
    if (change.squaredNorm() <= kLargeStep * kLargeStep * at.squaredNorm()) return;
  }
  if (const auto meeting = equations_.triangulate(sighting))
    information = equations_.information(sighting, *meeting, settings_.noise);
}

Outcome Track::followOne(const ObjectCandidates& candidates) {
  const Vector3d& at = centre_.p;
  const Candidate* found[2] = {};
  for (const int camera : {kLeft, kRight}) {
    const CandidateList& list = candidates[camera];
    if (list.size() == 1) {
      found[camera] = &list[0];
    } else if (const auto expected = equations_.project(camera, at)) {
      found[camera] = list.nearest(expected->pixel);
    }
  }
  return correctCentre(sightingOf(found[kLeft], found[kRight]));
}

/// Corrects the one-marker object by what both cameras saw or, where that does not fit, by the one
/// camera that fits where the other does not.
Outcome Track::correctCentre(const Sighting& sighting) {
  if (!sighting.any()) return {Refusal::kNotSeen};
  if (blind_ && !sighting.both()) return {Refusal::kOneCamera};
  const Vector3d& at = centre_.p;
  Outcome outcome{Refusal::kOffTrack, 0, kGate2, camerasOf(sighting)};
  const auto information = informationAt(sighting, at);
  if (information && sighting.both()) {
    const double miss2 = raysMiss(*information);
    outcome.raysMiss2 = miss2 * settings_.noise * settings_.noise;
    if (miss2 > kGate2) {
      outcome.refusal = Refusal::kRaysApart;
      outcome.value = miss2;
    }
  }
  if (information && outcome.refusal != Refusal::kRaysApart) {
    outcome.value = state_.centre.correct(*information, kGate2);
    if (outcome.value <= kGate2) {
      outcome.refusal = Refusal::kNone;
      outcome.used[0] = sighting;
    }
  }
  if (outcome.refusal == Refusal::kNone || !sighting.both() || blind_) return outcome;

  double distance2[2];
  std::optional<PositionInformation> one[2];
  for (const int camera : {kLeft, kRight}) {
    one[camera] = informationAt(onlyOf(sighting, camera), at);
    InteractingModels trial = state_.centre;
    distance2[camera] = one[camera] ? trial.correct(*one[camera], 0) : HUGE_VAL;
  }
  const bool left = distance2[kLeft] <= kGate2, right = distance2[kRight] <= kGate2;
  if (left == right) return outcome;
  const int camera = left ? kLeft : kRight;
  state_.centre.correct(*one[camera], kGate2);
  outcome.pairElsewhere = outcome.refusal == Refusal::kOffTrack;
  outcome.refusal = Refusal::kNone;
  outcome.value = distance2[camera];
  outcome.cameras = 1;
  outcome.used[0] = onlyOf(sighting, camera);
  return outcome;
}

Outcome Track::begin(double now, const ObjectCandidates& candidates) {
  const std::size_t lefts = std::min(candidates[kLeft].size(), kMostTried);
  const std::size_t rights = std::min(candidates[kRight].size(), kMostTried);
  if (lefts == 0 || rights == 0) return {Refusal::kOneCamera};

  std::array<std::array<Beginning, kMostTried>, kMostTried> grid;
  Outcome outcome{Refusal::kRaysApart, HUGE_VAL, kGate2, 2};
  for (std::size_t i = 0; i < lefts; ++i)
    for (std::size_t j = 0; j < rights; ++j) {
      const Sighting sighting = sightingOf(&candidates[kLeft][i], &candidates[kRight][j]);
      const auto point = equations_.triangulate(sighting);
      if (!point) continue;
      const auto information = equations_.information(sighting, *point, settings_.noise);
      if (!information) continue;
      Beginning& b = grid[i][j];
      b = {sighting, *point, *information, raysMiss(*information), false};
      if (b.miss2 > kGate2) {
        if (outcome.refusal == Refusal::kRaysApart)
          outcome.value = std::min(outcome.value, b.miss2);
      } else if (!(point->z() > settings_.nearest && point->z() <= settings_.farthest)) {
        outcome = {Refusal::kOutOfRange, point->z(), settings_.farthest, 2};
      } else {
        b.valid = true;
      }
    }

  const auto weightOf = [&](std::size_t i, std::size_t j) {
    return candidates[kLeft][i].weight + candidates[kRight][j].weight;
  };
  double best = 0;
  const Beginning* first = nullptr;
  const Beginning* second = nullptr;
  for (std::size_t i = 0; i < lefts; ++i)
    for (std::size_t j = 0; j < rights; ++j) {
      if (!grid[i][j].valid) continue;
      if (!twoPoint_) {
        if (weightOf(i, j) <= best) continue;
        best = weightOf(i, j);
        first = &grid[i][j];
        continue;
      }
      for (std::size_t k = i + 1; k < lefts; ++k)
        for (std::size_t l = 0; l < rights; ++l) {
          if (!grid[k][l].valid || (candidates[kLeft][i].blobs & candidates[kLeft][k].blobs) != 0 ||
              (candidates[kRight][j].blobs & candidates[kRight][l].blobs) != 0)
            continue;
          const double length = (grid[i][j].point - grid[k][l].point).norm();
          if (!(length > kSmallest && length < kLargest)) continue;
          const double score = (weightOf(i, j) + weightOf(k, l)) / (1 + length / kUsualLength);
          if (score <= best) continue;
          best = score;
          first = &grid[i][j];
          second = &grid[k][l];
        }
    }
  if (first == nullptr) return outcome.value == HUGE_VAL ? Outcome{Refusal::kRaysApart} : outcome;

  end();
  if (twoPoint_) {
    if (first->point.x() > second->point.x()) std::swap(first, second);
    const Matrix3d covariance = (first->information.weight + second->information.weight).inverse();
    state_.centre.start(firstState(0.5 * (first->point + second->point), covariance));
    state_.offset.start(firstState(0.5 * (second->point - first->point), covariance));
    state_.hasOffset = true;
  } else {
    state_.centre.start(firstState(first->point, first->information.weight.inverse()));
  }
  state_.alive = true;
  state_.lastSeen = state_.lastPair = now;
  state_.cameras = 2;
  accepted_ = 1;
  outcome = {Refusal::kNone, first->miss2, kGate2, 2};
  outcome.raysMiss2 = first->miss2 * settings_.noise * settings_.noise;
  outcome.began = true;
  outcome.used[0] = first->sighting;
  if (second != nullptr) outcome.used[1] = second->sighting;
  return outcome;
}

}  // namespace estimate
