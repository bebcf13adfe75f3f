#include <alg_kit/bodies/PairSight.h>

#include <alg_kit/bodies/BodyPose.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace bodies {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;

constexpr std::size_t kFirst = kPairId, kSecond = kSecondOfPair;

/// The smallest turn that brings one direction onto another: half a turn about any axis across
/// where they are opposite. Eigen's own, for the sake of that case, takes seconds to compile.
Eigen::Quaterniond turnBetween(const Vector3d& from, const Vector3d& to) {
  const Vector3d a = from.normalized(), b = to.normalized();
  const double cosine = a.dot(b);
  Eigen::Quaterniond turn;
  if (cosine < -1 + 1e-12) {
    turn.w() = 0;
    turn.vec() = a.unitOrthogonal();
    return turn;
  }
  const double twice = std::sqrt(2 * (1 + cosine));  // two cosines of half the angle
  turn.w() = 0.5 * twice;
  turn.vec() = a.cross(b) / twice;
  return turn;
}

}  // namespace

BodyFrame toldApart(const BodyFrame& frame, const Body& pair, const RigidMotion& expected,
                    const estimate::PixelEquations& cameras) {
  BodyFrame result = frame;
  for (const int camera : {estimate::kLeft, estimate::kRight}) {
    auto& first = result.markers[kFirst].pixel[camera];
    auto& second = result.markers[kSecond].pixel[camera];
    first = second = std::nullopt;
    const PairBlobs& blobs = frame.pair[static_cast<std::size_t>(camera)];
    const auto a = cameras.project(camera, expected * pair.markers[0].position);
    const auto b = cameras.project(camera, expected * pair.markers[1].position);
    if (blobs.count == 0 || !a || !b) continue;
    const auto [p, q] = blobs.pixel;
    const auto off = [](const Vector2d& blob, const auto& image) {
      return (blob - image->pixel).squaredNorm();
    };
    if (blobs.count == 1) {
      (off(p, a) <= off(p, b) ? first : second) = p;
      continue;
    }
    const bool straight = off(p, a) + off(q, b) <= off(p, b) + off(q, a);
    first = straight ? p : q;
    second = straight ? q : p;
  }
  return result;
}

std::optional<BodyFrame> toldApart(const BodyFrame& frame, const Body& pair,
                                   const estimate::PixelEquations& cameras, double noise) {
  const PairBlobs &left = frame.pair[estimate::kLeft], &right = frame.pair[estimate::kRight];
  if (left.count != 2 || right.count != 2) return std::nullopt;
  std::optional<BodyFrame> best;
  double least = std::numeric_limits<double>::infinity();
  for (const std::size_t other : {1u, 0u}) {
    BodyFrame told = frame;
    estimate::Sighting &first = told.markers[kFirst], &second = told.markers[kSecond];
    first.pixel[estimate::kLeft] = left.pixel[0];
    second.pixel[estimate::kLeft] = left.pixel[1];
    first.pixel[estimate::kRight] = right.pixel[1 - other];
    second.pixel[estimate::kRight] = right.pixel[other];
    const auto a = pointOf(first, cameras, noise), b = pointOf(second, cameras, noise);
    if (!a || !b) continue;
    if (a->position.x() > b->position.x()) std::swap(first, second);
    const auto pose = poseOf(pair, told, cameras, noise);
    if (!pose || pose->residual >= least) continue;
    least = pose->residual;
    best = told;
  }
  return best;
}

RigidMotion pairMotion(const Body& pair, const Vector3d& first, const Vector3d& second) {
  RigidMotion motion;
  motion.orientation = turnBetween(axisOf(pair), second - first);
  motion.position = 0.5 * (first + second) - motion.orientation * meanOf(pair);
  return motion;
}

RigidMotion otherWayRound(const Body& pair, const RigidMotion& motion) {
  return pairMotion(pair, motion * pair.markers[1].position, motion * pair.markers[0].position);
}

void forgetTurn(Eigen::Ref<Eigen::Matrix3d> covariance, const Vector3d& axis) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      const double share = axis[i] * axis[j];
      if (share != 0)
        covariance(i, j) = std::copysign(std::numeric_limits<double>::infinity(), share);
    }
}

double directionDeviation(const Matrix6d& covariance, const Vector3d& axis) {
  const Eigen::Matrix3d turn = covariance.bottomRightCorner<3, 3>();
  const double along = axis.dot(turn * axis);
  return std::sqrt(std::max(0.0, turn.trace() - along) / 2);
}

}  // namespace bodies
