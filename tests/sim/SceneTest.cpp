#include <alg_factory/api/Constants.h>
#include <alg_kit/rig/FisheyeCamera.h>
#include <gtest/gtest.h>
#include <sim/Scene.h>

#include <cmath>

namespace sim {
namespace {

TEST(Scene, ObjectsAndMarkersFollowTheProductType) {
  const int objects[] = {3, 3, 6};
  const std::size_t markers[] = {3, 4, 6};
  for (int type = 0; type < algorithm::kProductTypes; ++type) {
    const SceneState state = Scene::moving(type).at(1.5);
    EXPECT_EQ(objectCount(type), objects[type]);
    EXPECT_EQ(state.objects.size(), static_cast<std::size_t>(objects[type]));
    EXPECT_EQ(state.markers.size(), markers[type]);
    EXPECT_EQ(state.time, 1.5);
    for (int id = 0; id < objects[type]; ++id)
      EXPECT_EQ(state.objects[static_cast<std::size_t>(id)].objectId, id);
  }
  EXPECT_THROW(objectCount(3), std::invalid_argument);
  EXPECT_THROW(Scene::still(-1), std::invalid_argument);
  EXPECT_THROW(Scene(7, {}), std::invalid_argument);
}

TEST(Scene, PairKeepsItsSpacingAndItsMiddleIsTheObject) {
  const Scene scene = Scene::moving(1);
  for (double t = 0; t < 10; t += 0.37) {
    const SceneState state = scene.at(t);
    const auto& a = state.markers[2];
    const auto& b = state.markers[3];
    EXPECT_EQ(a.objectId, 2);
    EXPECT_EQ(b.objectId, 2);
    EXPECT_EQ(b.markerIndex, 1);
    EXPECT_NEAR((a.position - b.position).norm(), 68, 1e-9);
    EXPECT_LT(((a.position + b.position) / 2 - state.objects[2].position).norm(), 1e-9);
  }
}

TEST(Scene, StillObjectsDoNotMove) {
  const Scene scene = Scene::still(2);
  for (std::size_t i = 0; i < 6; ++i)
    EXPECT_EQ(scene.at(0).objects[i].position, scene.at(33).objects[i].position);
}

TEST(Scene, MovingObjectsStayInSightAndSlowAndTogether) {
  const rig::StereoRig rig = rig::builtInRig();
  const rig::FisheyeCamera left = rig::cameraOf(rig, rig::Camera::kLeft);
  const rig::FisheyeCamera right = rig::cameraOf(rig, rig::Camera::kRight);
  for (int type = 0; type < algorithm::kProductTypes; ++type) {
    for (std::uint64_t seed = 1; seed <= 5; ++seed) {
      const Scene scene = Scene::moving(type, seed);
      SceneState before = scene.at(0);
      for (int frame = 1; frame < 90 * 60; ++frame) {
        const SceneState now = scene.at(frame / 90.0);
        for (std::size_t i = 0; i < now.markers.size(); ++i) {
          const Eigen::Vector3d& p = now.markers[i].position;
          const auto image = right.imageOf(p, 30);
          ASSERT_TRUE(image && left.project(rig::rightToLeft(rig.calibration, p)));
          ASSERT_GT(image->diameter, 3);
          ASSERT_LT((p - before.markers[i].position).norm(), 80);  // the tightest jump test
          if (type != 2) {
            ASSERT_LT((p - now.objects[2].position).norm(), 1200);
          }
        }
        before = now;
      }
    }
  }
}

TEST(Scene, BodyCarriesItsObjectsRigidly) {
  const Eigen::Quaterniond turned(Eigen::AngleAxisd(1.1, Eigen::Vector3d(1, 2, 3).normalized()));
  const Trajectory trajectory(
      {{5, {{0, 0, 1500}, Eigen::Quaterniond::Identity()}}, {7, {{400, 100, 1900}, turned}}});
  const Scene scene = Scene::following(2, trajectory);
  EXPECT_EQ(scene.duration(), 2);
  const SceneState start = scene.at(0);
  for (const auto& object : start.objects) {
    const double offset = (object.position - Eigen::Vector3d(0, 0, 1500)).norm();
    EXPECT_GE(offset, 100);
    EXPECT_LE(offset, 300);
  }
  for (const double t : {0.4, 1.0, 1.7, 2.0}) {
    const SceneState now = scene.at(t);
    for (std::size_t i = 1; i < now.objects.size(); ++i)
      EXPECT_NEAR((now.objects[i].position - now.objects[0].position).norm(),
                  (start.objects[i].position - start.objects[0].position).norm(), 1e-9);
    const Eigen::Vector3d body = trajectory.at(t).position;
    EXPECT_NEAR((now.objects[0].position - body).norm(),
                (start.objects[0].position - Eigen::Vector3d(0, 0, 1500)).norm(), 1e-9);
  }
}

TEST(Scene, GeneratedMotionNeverEnds) {
  EXPECT_TRUE(std::isinf(Scene::moving(0).duration()));
}

}  // namespace
}  // namespace sim
