#include <alg_kit/bodies/LiveBodies.h>

#include <alg_kit/estimate/Information.h>

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
  learnNoise();
  for (BodyFilter& filter : filters_)
    filter.feed(frames_.frame(), *frames_.cameras(), noise_.value());
  return true;
}

void LiveBodies::learnNoise() {
  const estimate::PixelEquations& cameras = *frames_.cameras();
  for (const estimate::Sighting& sighting : frames_.frame().markers) {
    const auto point = sighting.both() ? cameras.triangulate(sighting) : std::nullopt;
    const auto fit = point ? cameras.information(sighting, *point, 1) : std::nullopt;
    if (fit) noise_.add(estimate::raysMiss(*fit));
  }
}

TrackedPose LiveBodies::at(std::size_t body) const {
  TrackedPose pose = delivered(filters_[body].now());
  const bool good = pose.pose.motion.position.allFinite() &&
                    pose.pose.motion.orientation.coeffs().allFinite() &&
                    pose.pose.covariance.allFinite();
  if (!good) pose.source = estimate::Source::kNone;
  return pose;
}

}  // namespace bodies
