#include <alg_kit/estimate/EstimateFrom.h>
#include <alg_kit/estimate/Estimator.h>
#include <alg_kit/estimate/Tracker.h>

#include <mutex>
#include <vector>

namespace estimate {
struct Estimator::State {
  State(int productType, const algorithm::StereoCalibration& calibration,
        const EstimatorOptions& options)
      : tracker(productType, calibration, options),
        published(static_cast<std::size_t>(tracker.objectCount()), TrackState(options.models)) {}

  void publish();

  Tracker tracker;

  mutable std::mutex mutex;  ///< of what follows, which any thread may read
  std::vector<TrackState> published;
  Verdict verdicts[algorithm::kMaxObjects];
  double now = 0;
  double noise = 0;
};

void Estimator::State::publish() {
  const std::lock_guard<std::mutex> lock(mutex);
  now = tracker.now();
  noise = tracker.noise();
  for (int object = 0; object < tracker.objectCount(); ++object) {
    const TrackState& from = tracker.track(object);
    const Outcome& outcome = tracker.outcome(object);
    TrackState& to = published[static_cast<std::size_t>(object)];
    if (from.alive && !from.hasOffset) {
      to.alive = true;
      to.confirmed = from.confirmed;
      to.lastSeen = from.lastSeen;
      to.lastPair = from.lastPair;
      to.cameras = from.cameras;
      to.hasOffset = to.leaning = false;
      to.centre = from.centre;
    } else if (from.alive) {
      to = from;
    } else {
      to.alive = false;
    }
    Verdict& verdict = verdicts[object];
    verdict.refusal = outcome.refusal;
    verdict.value = outcome.value;
    verdict.limit = outcome.limit;
    ++verdict.counts[static_cast<int>(verdict.refusal)];
  }
}

Estimator::Estimator(int productType, const algorithm::StereoCalibration& calibration,
                     const EstimatorOptions& options)
    : state_(std::make_unique<State>(productType, calibration, options)) {}

Estimator::~Estimator() = default;

void Estimator::feed(int streamType, const unsigned char* payload, int length,
                     std::optional<double> arrival) {
  if (state_->tracker.feed(streamType, payload, length, arrival)) state_->publish();
}

Estimate Estimator::ahead(int object, double seconds) const {
  const State& s = *state_;
  if (object < 0 || object >= s.tracker.objectCount()) return {};
  if (!(seconds >= 0 && seconds <= kFarthestAhead)) return {};
  std::unique_lock<std::mutex> lock(s.mutex);
  const TrackState track = s.published[static_cast<std::size_t>(object)];
  const double now = s.now, noise = s.noise;
  lock.unlock();
  return estimateFrom(track, now, seconds, noise);
}

Verdict Estimator::verdict(int object) const {
  const State& s = *state_;
  if (object < 0 || object >= s.tracker.objectCount()) return {};
  const std::lock_guard<std::mutex> lock(s.mutex);
  return s.verdicts[object];
}

double Estimator::now() const {
  const std::lock_guard<std::mutex> lock(state_->mutex);
  return state_->now;
}

double Estimator::noise() const {
  const std::lock_guard<std::mutex> lock(state_->mutex);
  return state_->noise;
}

int Estimator::objectCount() const {
  return state_->tracker.objectCount();
}

}  // namespace estimate
