#include <alg_kit/view/SceneGeometry.h>

#include <alg_kit/rig/FisheyeCamera.h>
#include <alg_kit/rig/StereoRig.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace view {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;

/// The least distance of a pixel from a line through pixels.
double distanceTo(const std::vector<Vector2d>& line, const Vector2d& pixel) {
  double least = 1e9;
  for (std::size_t i = 0; i + 1 < line.size(); ++i) {
    const Vector2d along = line[i + 1] - line[i];
    const double share = std::clamp((pixel - line[i]).dot(along) / along.squaredNorm(), 0.0, 1.0);
    least = std::min(least, (line[i] + share * along - pixel).norm());
  }
  return least;
}

TEST(SceneGeometry, TheRightCameraStandsAtTheOriginAndLooksAlongMinusZ) {
  const rig::StereoRig pair = rig::builtInRig();
  const SceneGeometry geometry = geometryOf(pair.calibration);
  EXPECT_EQ(geometry.cameras[1].centre, Vector3d::Zero());
  EXPECT_LT((geometry.cameras[1].axes[2] - Vector3d(0, 0, -1)).norm(), 1e-12);
  EXPECT_LT((geometry.cameras[1].axes[1] - Vector3d(0, -1, 0)).norm(), 1e-12);
  const auto& t = pair.calibration.translation;
  EXPECT_LT((geometry.cameras[0].centre - Vector3d(t[0], -t[1], -t[2])).norm(), 1e-9);
  EXPECT_NEAR(geometry.width, 640, 24);
  EXPECT_NEAR(geometry.height, 480, 24);
}

TEST(SceneGeometry, ThePartnerOfABlobLiesOnItsLine) {
  const rig::StereoRig pair = rig::builtInRig();
  const auto left = rig::cameraOf(pair, rig::Camera::kLeft);
  const auto right = rig::cameraOf(pair, rig::Camera::kRight);
  for (const Vector3d& p_R :
       {Vector3d(120, -80, 900), Vector3d(-300, 200, 1700), Vector3d(40, 10, 3200)}) {
    const auto inLeft = left.project(rig::rightToLeft(pair.calibration, p_R));
    const auto inRight = right.project(p_R);
    ASSERT_TRUE(inLeft && inRight);
    const PixelRay fromLeft = rayOf(pair.calibration, 0, inLeft->x(), inLeft->y(), 3500);
    const PixelRay fromRight = rayOf(pair.calibration, 1, inRight->x(), inRight->y(), 3500);
    EXPECT_LT(distanceTo(fromLeft.otherImage, *inRight), 0.05);
    EXPECT_LT(distanceTo(fromRight.otherImage, *inLeft), 0.05);
  }
}

TEST(SceneGeometry, ARayGoesThroughThePointThatThePixelShows) {
  const rig::StereoRig pair = rig::builtInRig();
  const Vector3d p_R(-200, 150, 1500);
  const auto inLeft =
      rig::cameraOf(pair, rig::Camera::kLeft).project(rig::rightToLeft(pair.calibration, p_R));
  ASSERT_TRUE(inLeft);
  const PixelRay ray = rayOf(pair.calibration, 0, inLeft->x(), inLeft->y(), 3500);
  const Vector3d along = (ray.ends[1] - ray.ends[0]).normalized();
  const Vector3d to = rig::mirrored(p_R) - ray.ends[0];
  EXPECT_LT((to - to.dot(along) * along).norm(), 0.5);
}

}  // namespace
}  // namespace view
