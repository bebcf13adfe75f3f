#include <alg_kit/estimate/EstimateFrom.h>
#include <alg_kit/estimate/Estimator.h>
#include <alg_kit/estimate/Tracker.h>

#include <mutex>

namespace estimate {
struct Estimator::State {
  State(int productType, const algorithm::StereoCalibration& calibration,
        const EstimatorOptions& options)
      : tracker(productType, calibration, options) {}

  void count();

  mutable std::mutex mutex;  ///< of all that follows
  Tracker tracker;
  Verdict verdicts[algorithm::kMaxObjects];
};

void Estimator::State::count() {
  for (int object = 0; object < tracker.objectCount(); ++object) {
    const Outcome& outcome = tracker.outcome(object);
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
  // A packet takes a few microseconds: who asks meanwhile waits no longer than for a copy of it
  // all.
  const std::lock_guard<std::mutex> lock(state_->mutex);
  if (state_->tracker.feed(streamType, payload, length, arrival)) state_->count();
}

Estimate Estimator::ahead(int object, double seconds) const {
  const State& s = *state_;
  if (object < 0 || object >= s.tracker.objectCount()) return {};
  if (!(seconds >= 0 && seconds <= kFarthestAhead)) return {};
  std::unique_lock<std::mutex> lock(s.mutex);
  const TrackState track = s.tracker.track(object);
  const double now = s.tracker.now(), noise = s.tracker.noise();
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
  return state_->tracker.now();
}

double Estimator::noise() const {
  const std::lock_guard<std::mutex> lock(state_->mutex);
  return state_->tracker.noise();
}

int Estimator::objectCount() const {
  return state_->tracker.objectCount();
}

}  // namespace estimate
