#include <alg_kit/estimate/EstimateFrom.h>
#include <alg_kit/estimate/Information.h>
#include <alg_kit/estimate/Smoother.h>
#include <alg_kit/estimate/Surprise.h>
#include <alg_kit/estimate/Tracker.h>
#include <alg_kit/estimate/TwoFilter.h>

#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace estimate {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

/// Seconds, as good as for ever: white jerk is the same forwards and backwards, fading is not, and
/// the smoother, which has both sides of every moment, does not need it.
constexpr double kNoFading = 1e4;

constexpr double kMedianOfSquare = 0.45493642;  // of a squared standard normal number

struct Payload {
  int streamType = 0;
  std::vector<unsigned char> bytes;
  std::optional<double> arrival;
};

/// What one frame has of one object.
struct Seen {
  bool alive = false;
  bool began = false;
  Sighting used[2];                    ///< by marker
  Vector3d centre = Vector3d::Zero();  ///< as the track had it: near enough to linearise at
  Vector3d offset = Vector3d::Zero();
};

/// With variances as the sightings say they are.
MotionState honest(const SmoothedFrame& frame, Surprise& surprise) {
  surprise.add(frame.distance2, frame.numbers);
  MotionState state = frame.marker;
  for (auto* const block : {&state.pp, &state.pv, &state.pa, &state.vv, &state.va, &state.aa})
    *block *= surprise.factor();
  return state;
}

}  // namespace

struct Smoother::State {
  State(int type, const algorithm::StereoCalibration& pair, const EstimatorOptions& given)
      : productType(type), calibration(pair), options(given), probe(type, pair, given) {}

  void follow();
  void smoothObject(int object, const Taker& take) const;
  void smoothBetween(int object, std::size_t from, std::size_t to, const Taker& take) const;

  const int productType;
  const algorithm::StereoCalibration calibration;
  EstimatorOptions options;
  Tracker probe;  ///< follows while payloads come: it numbers the frames and collects the noise
  std::vector<Payload> payloads;
  std::vector<double> raysMiss2;

  std::optional<Tracker> tracker;
  std::vector<double> times, elapsed;
  std::vector<std::vector<Seen>> byObject;  ///< ... and frame
};

Smoother::Smoother(int productType, const algorithm::StereoCalibration& calibration,
                   const EstimatorOptions& options)
    : state_(std::make_unique<State>(productType, calibration, options)) {}

Smoother::~Smoother() = default;

std::optional<std::size_t> Smoother::add(int streamType, const unsigned char* payload, int length,
                                         std::optional<double> arrival) {
  State& s = *state_;
  if (!s.probe.feed(streamType, payload, length, arrival)) return std::nullopt;
  for (int object = 0; object < s.probe.objectCount(); ++object)
    if (s.probe.outcome(object).raysMiss2 >= 0)
      s.raysMiss2.push_back(s.probe.outcome(object).raysMiss2);
  s.payloads.push_back({streamType, {payload, payload + length}, arrival});
  return s.payloads.size() - 1;
}

void Smoother::run(const Taker& take) {
  State& s = *state_;
  if (s.options.noise == 0 && !s.raysMiss2.empty()) {
    // The median: outliers and false pairs do not move it.
    const auto middle = s.raysMiss2.begin() + static_cast<std::ptrdiff_t>(s.raysMiss2.size() / 2);
    std::nth_element(s.raysMiss2.begin(), middle, s.raysMiss2.end());
    s.options.noise =
        std::clamp(std::sqrt(*middle / kMedianOfSquare), BlobNoise::kLeast, BlobNoise::kMost);
  }
  s.follow();
  for (int object = 0; object < s.probe.objectCount(); ++object) s.smoothObject(object, take);
}

double Smoother::noise() const {
  return state_->options.noise;
}

/// The tracks decide which light is whose, where they begin and end.
void Smoother::State::follow() {
  tracker.emplace(productType, calibration, options);
  times.clear();
  elapsed.clear();
  byObject.assign(static_cast<std::size_t>(probe.objectCount()), {});
  for (const Payload& payload : payloads) {
    tracker->feed(payload.streamType, payload.bytes.data(), static_cast<int>(payload.bytes.size()),
                  payload.arrival);
    const bool late = tracker->tick().step == FrameClock::Step::kLate;
    times.push_back(tracker->now());
    elapsed.push_back(tracker->tick().elapsed);
    for (int object = 0; object < probe.objectCount(); ++object) {
      const TrackState& track = tracker->track(object);
      const Outcome& outcome = tracker->outcome(object);
      Seen& now = byObject[static_cast<std::size_t>(object)].emplace_back();
      now.alive = track.alive && !late;
      if (!now.alive) continue;
      now.began = outcome.began;
      now.used[0] = outcome.used[0];
      now.used[1] = outcome.used[1];
      now.centre = track.centre.place().p;
      if (track.hasOffset) now.offset = track.offset.place().p;
    }
  }
}

void Smoother::State::smoothObject(int object, const Taker& take) const {
  const auto& frames = byObject[static_cast<std::size_t>(object)];
  for (std::size_t end = frames.size(); end > 0;) {
    if (!frames[end - 1].alive) {
      --end;
      continue;
    }
    std::size_t begin = end - 1;
    while (begin > 0 && !frames[begin].began) --begin;
    const auto sightings =
        std::count_if(frames.begin() + static_cast<std::ptrdiff_t>(begin),
                      frames.begin() + static_cast<std::ptrdiff_t>(end),
                      [](const Seen& f) { return f.used[0].any() || f.used[1].any(); });
    if (sightings > 1) smoothBetween(object, begin, end, take);  // else nothing confirms it
    end = begin;
  }
}

/// @param from, to  frames of one track: it begins with `from`, and `to` is one past its last
void Smoother::State::smoothBetween(int object, std::size_t from, std::size_t to,
                                    const Taker& take) const {
  // Late frames inside have no time of their own: they are left out.
  std::vector<std::size_t> frames;
  const auto& all = byObject[static_cast<std::size_t>(object)];
  for (std::size_t i = from; i < to; ++i)
    if (all[i].alive) frames.push_back(i);
  const bool two = algorithm::markerCount(productType, object) == 2;
  const PixelEquations& equations = tracker->equations();
  ModelSet models = options.models;
  models.memory = kNoFading;
  const double noise = options.noise > 0 ? options.noise : tracker->noise();

  const auto frameOf = [&](std::size_t k) -> const Seen& { return all[frames[k]]; };
  const auto isStart = [&](std::size_t k) {
    const Seen& f = frameOf(k);
    return f.used[0].both() && (!two || f.used[1].both());
  };
  Stretch stretch;
  for (const std::size_t frame : frames) stretch.elapsed.push_back(elapsed[frame]);
  for (std::size_t k = 0; k < frames.size(); ++k)
    if (isStart(k)) stretch.lastStart = k;
  while (stretch.elapsed.size() > 1 && !frameOf(stretch.elapsed.size() - 1).used[0].any() &&
         !frameOf(stretch.elapsed.size() - 1).used[1].any())
    stretch.elapsed.pop_back();  // after the last sighting there is nothing to smooth

  // The equations are straight near the true place only. The track was near it; a filter that comes
  // from the future, out of a gap, may not be.
  const auto informationOf = [&](const Seen& f, int marker, const Sighting& used) {
    const Vector3d toMarker = marker == 0 ? Vector3d(-f.offset) : f.offset;
    return equations.information(used, f.centre + toMarker, noise);
  };
  const auto pairOf = [&](const Seen& f) -> std::optional<MiddleAndOffset> {
    const Sighting common = commonOf(f.used[0], f.used[1]);
    if (!common.any()) return std::nullopt;
    const auto first = informationOf(f, 0, common),
               second = informationOf(f, 1, commonOf(f.used[1], f.used[0]));
    if (!first || !second) return std::nullopt;
    return middleAndOffset(*first, *second);
  };
  using See = std::optional<PositionInformation>;
  std::vector<MotionState> offsetStates(two ? frames.size() : 0);
  if (two) {
    stretch.see = [&](std::size_t k) -> See {
      const auto seen = pairOf(frameOf(k));
      return seen ? See(seen->offset) : std::nullopt;
    };
    stretch.start = [&](std::size_t k) {
      const auto seen = pairOf(frameOf(k));
      return firstState(seen->offset.at, seen->offset.weight.inverse());
    };
    Surprise surprise;
    smoothStretch(stretch, models, [&](std::size_t k, const SmoothedFrame& frame) {
      offsetStates[k] = honest(frame, surprise);
    });
  }
  stretch.see = [&](std::size_t k) -> See {
    const Seen& f = frameOf(k);
    if (!f.used[0].any() && !f.used[1].any()) return std::nullopt;
    if (!two) return informationOf(f, 0, f.used[0]);
    const MotionState& offset = offsetStates[k];
    const auto asMiddle = [&](int marker, const Sighting& used) -> See {
      const auto one = informationOf(f, marker, used);
      if (!one) return std::nullopt;
      return ofMiddle(*one, marker == 0 ? offset.p : Vector3d(-offset.p), f.centre);
    };
    const auto seen = pairOf(f);
    if (!seen) return f.used[0].any() ? asMiddle(0, f.used[0]) : asMiddle(1, f.used[1]);
    if (areAlike(f.used[0], f.used[1])) return seen->middle;
    const int marker = f.used[0].both() ? 0 : 1;
    const int camera = f.used[1 - marker].pixel[kLeft] ? kRight : kLeft;
    const See other = asMiddle(marker, onlyOf(f.used[marker], camera));
    return other ? together(blurred(*other, offset.pp), seen->middle) : seen->middle;
  };
  stretch.start = [&](std::size_t k) {
    const auto information = stretch.see(k);
    const Matrix3d covariance = information->weight.inverse();
    return firstState(information->at + covariance * information->pull, covariance);
  };
  double lastSeen = 0;
  std::vector<double> seenAt;
  for (std::size_t k = 0; k < stretch.elapsed.size(); ++k) {
    if (frameOf(k).used[0].any() || frameOf(k).used[1].any()) lastSeen = times[frames[k]];
    seenAt.push_back(lastSeen);
  }
  Surprise surprise;
  smoothStretch(stretch, models, [&](std::size_t k, const SmoothedFrame& frame) {
    const Seen& f = frameOf(k);
    Estimate result;
    const bool any = frame.used && (f.used[0].any() || f.used[1].any());
    result.source = any ? Source::kMeasured : Source::kBridged;
    result.time = times[frames[k]];
    result.age = result.time - seenAt[k];
    result.cameras = any ? std::max(camerasOf(f.used[0]), camerasOf(f.used[1])) : 0;
    result.noise = noise;
    MotionState centre = honest(frame, surprise);
    if (two) {
      storeOffset(offsetStates[k], result);
      if (any && !areAlike(f.used[0], f.used[1])) centre.pp += offsetStates[k].pp;
    }
    storeMotion(centre, result);
    take(object, frames[k], result);
  });
}

}  // namespace estimate
