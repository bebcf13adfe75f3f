#include <alg_kit/bodies/BodySmoother.h>

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>
#include <optional>

namespace bodies {
namespace {

struct Kept {
  BodyFilter::Step step;
  TrackedPose pose;
};

/// @param later     the next frame's step
/// @param smoothed  its state by all frames
BodyState wentBack(const BodyState& after, const BodyFilter::Step& later,
                   const BodyState& smoothed) {
  const Matrix15d forward = matrixOf(later.by) * after.covariance;
  const Matrix15d gain = later.before.covariance.ldlt().solve(forward).transpose();
  BodyState result = after;
  changeBy(result, gain * changeFrom(later.before, smoothed));
  result.covariance += gain * (smoothed.covariance - later.before.covariance) * gain.transpose();
  return result;
}

/// What was seen follows the state by regression.
struct Sight {
  RigidMotion seen;
  Matrix6d covariance;
};

Sight sightOf(const BodyFilter::Step& step, const BodyState& smoothed) {
  const Matrix15d& before = step.after.covariance;
  StateByPose cross =
      step.before.covariance.leftCols<6>() - step.taken * step.seenTaken.transpose();
  for (const int part : {kTurn, kTurnRate})
    cross.block<3, 3>(part, kTurn) += step.open * step.taken.middleRows<3>(part) *
                                      step.seenTaken.bottomRows<3>().transpose() * step.open;
  const Eigen::Matrix<double, 6, kStateSize> follow = before.ldlt().solve(cross).transpose();
  const Matrix6d covariance =
      step.seenCovariance + follow * (smoothed.covariance - before) * follow.transpose();
  return {changedBy(step.seen, follow * changeFrom(step.after, smoothed)),
          0.5 * (covariance + covariance.transpose())};
}

}  // namespace

void smoothBody(const Body& body, const std::vector<BodyFrame>& frames,
                const estimate::PixelEquations& cameras, double noise,
                const BodyFilterOptions& options, const SmoothedTaker& take) {
  // The filter at the beginning of each block; its steps are made again block by block.
  const auto block = static_cast<std::size_t>(std::ceil(std::sqrt(frames.size() + 1.0)));
  std::vector<BodyFilter> beginnings;
  BodyFilter filter(body, options);
  for (std::size_t k = 0; k < frames.size(); ++k) {
    if (k % block == 0) beginnings.push_back(filter);
    filter.feed(frames[k], cameras, noise);
  }
  std::vector<Kept> kept;
  std::optional<BodyFilter::Step> later;
  BodyState smoothed;  // of `later`
  for (std::size_t b = beginnings.size(); b-- > 0;) {
    filter = beginnings[b];
    kept.clear();
    const std::size_t end = std::min(frames.size(), (b + 1) * block);
    for (std::size_t k = b * block; k < end; ++k) {
      filter.feed(frames[k], cameras, noise);
      kept.push_back({filter.step(), filter.now()});
    }
    for (std::size_t k = end; k-- > b * block;) {
      const Kept& at = kept[k - b * block];
      if (at.step.alive) {
        const bool leadsOn = later && later->alive && !later->began;
        smoothed = leadsOn ? wentBack(at.step.after, *later, smoothed) : at.step.after;
        const Sight sight = sightOf(at.step, smoothed);
        TrackedPose pose = filter.answerOf(smoothed, sight.seen, sight.covariance, at.pose.source);
        pose.age = at.pose.age;
        pose.pose.markers = at.pose.pose.markers;
        pose.pose.residual = at.pose.pose.residual;
        pose.pose.ends = at.pose.pose.ends;
        pose.misfits = at.pose.misfits;
        take(k, pose);
      }
      later = at.step;
    }
  }
}

}  // namespace bodies
