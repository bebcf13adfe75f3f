#include <alg_kit/bodies/LiveBodies.h>

namespace bodies {
namespace {

constexpr double kFirstNoise = 0.1;  // px, before the light has said anything

}  // namespace

LiveBodies::LiveBodies(const std::vector<Body>& bodies, double frameRate)
    : frames_(frameRate), filters_(bodies.begin(), bodies.end()), noise_(kFirstNoise) {}

void LiveBodies::begin(int productType, const algorithm::StereoCalibration& calibration) {
  frames_.begin(productType, calibration);
}

bool LiveBodies::take(const session::Call& call) {
  if (!frames_.take(call)) return false;
  eachMiss(frames_.frame(), *frames_.cameras(), [this](double miss) { noise_.add(miss); });
  for (BodyFilter& filter : filters_)
    filter.feed(frames_.frame(), *frames_.cameras(), noise_.value());
  return true;
}

TrackedPose LiveBodies::at(std::size_t body) const {
  TrackedPose pose = delivered(filters_[body].now());
  const auto& covariance = pose.pose.covariance;  // infinite in what nobody sees of a pair's turn
  const bool good = pose.pose.motion.position.allFinite() &&
                    pose.pose.motion.orientation.coeffs().allFinite() &&
                    covariance.leftCols<3>().allFinite() && !covariance.hasNaN();
  if (!good) pose.source = estimate::Source::kNone;
  return pose;
}

}  // namespace bodies
