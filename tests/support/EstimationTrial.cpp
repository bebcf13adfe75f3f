#include <tests/support/EstimationTrial.h>

#include <alg_factory/api/Constants.h>
#include <alg_factory/service/PoseAnswer.h>
#include <alg_factory/service/ResultBlock.h>
#include <alg_kit/estimate/Smoother.h>

#include <Eigen/LU>
#include <cmath>
#include <cstring>
#include <ctime>
#include <vector>

namespace testing_support {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

constexpr std::int64_t kAhead = 3;  // frames

struct Sink : algorithm::DataSink, algorithm::LogSink {
  bool Deliver(const void* buffer, int offset, int length) override {
    std::memcpy(&block, static_cast<const char*>(buffer) + offset,
                static_cast<std::size_t>(length));
    return true;
  }
  bool Log(int, const char*) override { return true; }
  algorithm::ResultBlock block;
};

/// A position with its covariance, delivered axes.
struct Place {
  bool known = false;
  Vector3d p = Vector3d::Zero();
  Matrix3d covariance = Matrix3d::Identity();
};

Place placeOf(const estimate::Estimate& estimate) {
  Place place;
  place.known = estimate.source != estimate::Source::kNone;
  for (int i = 0; i < 3; ++i) {
    place.p[i] = estimate.position[i];
    for (int j = 0; j < 3; ++j) place.covariance(i, j) = estimate.covariance[i][j];
  }
  return place;
}

struct Row {
  Vector3d truth, delivered, answered;
  bool seen = false;
  Place online, predicted, smoothed;
};

class Mean {
 public:
  void add(double value) {
    sum_ += value;
    ++count_;
  }
  double value() const { return count_ > 0 ? sum_ / static_cast<double>(count_) : 0; }
  double root() const { return std::sqrt(value()); }

 private:
  double sum_ = 0;
  long count_ = 0;
};

/// Squared error in units of the stated covariance, 1 on average.
double neesOf(const Place& place, const Vector3d& truth) {
  const Vector3d error = place.p - truth;
  return error.dot(place.covariance.inverse() * error) / 3;
}

}  // namespace

TrialResult runTrial(algorithm::AlgBase& library, const sim::Simulator& simulator, double seconds,
                     const estimate::EstimatorOptions& options, double warmUp) {
  static Sink sink;  // the library keeps it
  const int type = simulator.scene().productType();
  const int objects = algorithm::objectCount(type);
  const auto frames = static_cast<std::int64_t>(seconds * simulator.frameRate());
  library.SetLogCallback(&sink);
  library.SetDataCallback(&sink);
  library.Init(type, reinterpret_cast<const unsigned char*>(&simulator.rig().calibration), 0);
  library.SetFilterMode(0, algorithm::kFilterFast, nullptr);

  estimate::Estimator estimator(type, simulator.rig().calibration, options);
  estimate::Smoother smoother(type, simulator.rig().calibration, options);
  std::vector<std::vector<Row>> rows(static_cast<std::size_t>(objects),
                                     std::vector<Row>(static_cast<std::size_t>(frames)));
  std::vector<std::size_t> frameOf;  ///< the smoother's frames
  sim::Frame frame;
  std::vector<sim::Bytes> payloads;
  std::vector<double> arrivals;
  for (std::int64_t n = 0; n < frames; ++n) {
    simulator.frame(n, frame);
    sink.block = {};
    if (!frame.lost) {
      const auto* const bytes = frame.payload.data();
      const int length = static_cast<int>(frame.payload.size());
      library.InputStream(simulator.streamType(), bytes, 0, length);
      estimator.feed(simulator.streamType(), bytes, length, simulator.timeOf(n));
      payloads.push_back(frame.payload);
      arrivals.push_back(simulator.timeOf(n));
      if (smoother.add(simulator.streamType(), bytes, length, simulator.timeOf(n)))
        frameOf.push_back(static_cast<std::size_t>(n));
    }
    for (int object = 0; object < objects; ++object) {
      Row& row = rows[static_cast<std::size_t>(object)][static_cast<std::size_t>(n)];
      const algorithm::TrackedPoint& record = sink.block.records[object];
      algorithm::PoseAnswer answer;
      library.HandleEvent(object, &algorithm::kFilterStateStamp, &answer);
      row.truth = rig::mirrored(frame.truth.objects[static_cast<std::size_t>(object)].position);
      row.seen = !frame.lost && record.id == object && answer.id == object;
      row.delivered = Vector3d(record.x, record.y, record.z);
      row.answered = Vector3d(answer.filtered[0], answer.filtered[1], answer.filtered[2]);
      row.online = placeOf(estimator.at(object));
      row.predicted = placeOf(estimator.ahead(object, kAhead / simulator.frameRate()));
    }
  }
  smoother.run([&](int object, std::size_t at, const estimate::Estimate& estimate) {
    rows[static_cast<std::size_t>(object)][frameOf[at]].smoothed = placeOf(estimate);
  });

  // In one go: to look at the clock costs as much as a frame.
  estimate::Estimator timed(type, simulator.rig().calibration, options);
  const std::clock_t begin = std::clock();
  for (std::size_t i = 0; i < payloads.size(); ++i)
    timed.feed(simulator.streamType(), payloads[i].data(), static_cast<int>(payloads[i].size()),
               arrivals[i]);
  const std::clock_t spent = std::clock() - begin;

  TrialResult result;
  Mean delivered, answered, online, predicted, held, smoothed, onlineNees, smoothedNees,
      predictedNees, onlineStated, smoothedStated, answeredJitter, onlineJitter;
  double answeredBehind = 0, onlineBehind = 0, speed2 = 0;
  const auto first = static_cast<std::int64_t>(warmUp * simulator.frameRate());
  for (const auto& track : rows) {
    Vector3d answeredMean = Vector3d::Zero(), onlineMean = Vector3d::Zero();
    long count = 0;
    const auto counts = [&](std::int64_t n) {
      return track[static_cast<std::size_t>(n)].seen &&
             track[static_cast<std::size_t>(n)].online.known;
    };
    for (std::int64_t n = first; n + kAhead < frames; ++n) {
      const Row& row = track[static_cast<std::size_t>(n)];
      if (row.seen && !row.online.known) ++result.missing;
      if (!counts(n)) continue;
      ++count;
      answeredMean += row.answered;
      onlineMean += row.online.p;
    }
    result.frames += count;
    answeredMean /= static_cast<double>(std::max(count, 1L));
    onlineMean /= static_cast<double>(std::max(count, 1L));
    for (std::int64_t n = first; n + kAhead < frames; ++n) {
      if (!counts(n)) continue;
      const Row& row = track[static_cast<std::size_t>(n)];
      const Vector3d& later = track[static_cast<std::size_t>(n + kAhead)].truth;
      delivered.add((row.delivered - row.truth).squaredNorm());
      answered.add((row.answered - row.truth).squaredNorm());
      online.add((row.online.p - row.truth).squaredNorm());
      onlineNees.add(neesOf(row.online, row.truth));
      onlineStated.add(row.online.covariance.trace());
      predicted.add((row.predicted.p - later).squaredNorm());
      predictedNees.add(neesOf(row.predicted, later));
      held.add((row.delivered - later).squaredNorm());
      if (row.smoothed.known) {
        smoothed.add((row.smoothed.p - row.truth).squaredNorm());
        smoothedNees.add(neesOf(row.smoothed, row.truth));
        smoothedStated.add(row.smoothed.covariance.trace());
      }
      answeredJitter.add((row.answered - answeredMean).squaredNorm());
      onlineJitter.add((row.online.p - onlineMean).squaredNorm());
      const Vector3d velocity = (track[static_cast<std::size_t>(n + 1)].truth -
                                 track[static_cast<std::size_t>(n - 1)].truth) *
                                simulator.frameRate() / 2;
      speed2 += velocity.squaredNorm();
      answeredBehind -= velocity.dot(row.answered - row.truth);
      onlineBehind -= velocity.dot(row.online.p - row.truth);
    }
  }
  result.delivered = delivered.root();
  result.answered = answered.root();
  result.online = online.root();
  result.predicted = predicted.root();
  result.held = held.root();
  result.smoothed = smoothed.root();
  result.onlineNees = onlineNees.value();
  result.smoothedNees = smoothedNees.value();
  result.predictedNees = predictedNees.value();
  result.onlineStated = onlineStated.root();
  result.smoothedStated = smoothedStated.root();
  result.answeredJitter = answeredJitter.root();
  result.onlineJitter = onlineJitter.root();
  if (speed2 > 0) {
    result.answeredLag = answeredBehind / speed2;
    result.onlineLag = onlineBehind / speed2;
  }
  result.noise = estimator.noise();
  result.microseconds =
      static_cast<double>(spent) / CLOCKS_PER_SEC * 1e6 / static_cast<double>(frames * objects);
  return result;
}

}  // namespace testing_support
