// Projecting a scene through a camera pair and tracking the packets gives the true positions back.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <string>
#include <tuple>

#include <alg_kit/calibration/KalibrFile.h>
#include <sim/Simulator.h>
#include <sim/Trajectory.h>
#include <tests/support/Host.h>

namespace {

using algorithm::ResultBlock;
using algorithm::TrackedPoint;
using testing_support::Host;

constexpr double kOneMillimetre = 1.0;

std::filesystem::path dataFolder() {
  const char* fromEnvironment = std::getenv("ALG_TEST_DATA");
  return fromEnvironment != nullptr ? fromEnvironment : ALG_TEST_DATA;
}

Eigen::Vector3d positionOf(const TrackedPoint& record) {
  return {record.x, record.y, record.z};
}

/// How close one object was followed.
struct Follow {
  int visible = 0;      ///< frames in which both cameras saw all of its markers
  int reported = 0;     ///< of these, frames with a record
  int close = 0;        ///< of these, frames less than a millimetre from the truth
  int held = 0;         ///< of these, frames in which the position of the frame before was repeated
  int unexplained = 0;  ///< reported, neither close nor held
  double worst = 0;     ///< mm, over the close frames
  Eigen::Vector3d last = Eigen::Vector3d::Zero();  ///< reported in the frame before
};

std::map<int, Follow> track(const sim::Simulator& simulator, int frames) {
  Host host;
  EXPECT_TRUE(host.init(simulator.scene().productType(), simulator.rig().calibration));
  std::map<int, Follow> follows;
  for (int n = 0; n < frames; ++n) {
    const sim::Frame frame = simulator.frame(n);
    EXPECT_TRUE(host.input(simulator.streamType(), frame.payload));
    EXPECT_EQ(host.data.blocks.size(), 1u);
    const ResultBlock block = host.data.last();
    host.data.blocks.clear();
    EXPECT_EQ(block.header, simulator.streamType() == 2 ? frame.stamp : 0u);

    for (const sim::ObjectTruth& object : frame.truth.objects) {
      Follow& follow = follows[object.objectId];
      const TrackedPoint& record = block.records[object.objectId];
      bool visible = true;
      for (const sim::MarkerTruth& marker : frame.truth.markers) {
        if (marker.objectId == object.objectId)
          visible = visible && marker.inLeft && marker.inRight;
      }
      const Eigen::Vector3d reported = positionOf(record);
      if (visible) {
        ++follow.visible;
        if (record.id == object.objectId) {
          ++follow.reported;
          const double error = (reported - rig::mirrored(object.position)).norm();
          if (error < kOneMillimetre) {
            ++follow.close;
            follow.worst = std::max(follow.worst, error);
          } else if (reported == follow.last) {
            ++follow.held;
          } else {
            ++follow.unexplained;
          }
        }
      }
      follow.last = reported;
    }
  }
  return follows;
}

void report(const std::map<int, Follow>& follows) {
  for (const auto& [id, f] : follows) {
    testing::Test::RecordProperty("object" + std::to_string(id) + "_worst_mm",
                                  std::to_string(f.worst));
    std::cout << "object " << id << ": visible " << f.visible << ", reported " << f.reported
              << ", within 1 mm " << f.close << " (worst " << f.worst << " mm), held " << f.held
              << ", else " << f.unexplained << '\n';
  }
}

class EndToEnd : public testing::TestWithParam<std::tuple<int, sim::Framing>> {
 protected:
  int productType() const { return std::get<0>(GetParam()); }
  sim::SimulatorOptions options() const {
    sim::SimulatorOptions options;
    options.framing = std::get<1>(GetParam());
    return options;
  }
  int objects() const { return sim::objectCount(productType()); }

  // All objects are seen in every frame. Only the two-point object of product type 1 may repeat the
  // position of the frame before (whenever the ratio of its markers' diameters, whole even pixels,
  // jumps), every other report is within a millimetre.
  void expectFollowed(const std::map<int, Follow>& follows, int frames) const {
    report(follows);
    ASSERT_EQ(follows.size(), static_cast<std::size_t>(objects()));
    for (const auto& [id, follow] : follows) {
      EXPECT_EQ(follow.visible, frames) << id;
      EXPECT_EQ(follow.reported, follow.visible) << id;
      EXPECT_EQ(follow.unexplained, 0) << id;
      if (productType() == 1 && id == 2) {
        EXPECT_GT(follow.close, 0.98 * follow.visible);
      } else {
        EXPECT_EQ(follow.held, 0) << id;
      }
    }
  }
};

TEST_P(EndToEnd, ObjectsAtRestAreFoundWhereTheyAre) {
  const sim::Simulator simulator(rig::builtInRig(), sim::Scene::still(productType()), options());
  const auto follows = track(simulator, 30);
  report(follows);
  ASSERT_EQ(follows.size(), static_cast<std::size_t>(objects()));
  for (const auto& [id, follow] : follows) {
    EXPECT_EQ(follow.visible, 30) << id;
    EXPECT_EQ(follow.close, 30) << id;
    EXPECT_LT(follow.worst, 0.05) << id;
  }
}

// Ten seconds of handheld motion.
TEST_P(EndToEnd, MovingObjectsAreFollowed) {
  const sim::Simulator simulator(rig::builtInRig(), sim::Scene::moving(productType()), options());
  const auto follows = track(simulator, 900);
  expectFollowed(follows, 900);
}

// A head in a room before a real camera pair: turned against each other, with the fundamental
// matrix computed from its calibration.
TEST_P(EndToEnd, MeasuredMotionBeforeARealCameraPairIsFollowed) {
  const auto motion = dataFolder() / "tum_vi_room1.tum";
  const auto cameras = dataFolder() / "tum_vi_camchain.yaml";
  if (!std::filesystem::exists(motion) || !std::filesystem::exists(cameras)) {
    GTEST_SKIP() << "no measured data in " << dataFolder();
  }
#if !defined(ALG_READS_KALIBR_FILES)
  GTEST_SKIP() << "no YAML library for this platform";
#else
  const rig::StereoRig rig = calibration::readKalibrCameraChain(cameras.string());
  const sim::Trajectory trajectory = sim::Trajectory::readTum(motion.string());
  const sim::Simulator simulator(
      rig, sim::Scene::following(productType(), trajectory.part(10, 20).placedInFront(1500)),
      options());
  const auto follows = track(simulator, 1800);
  expectFollowed(follows, 1800);
#endif
}

INSTANTIATE_TEST_SUITE_P(, EndToEnd,
                         testing::Combine(testing::Values(0, 1, 2),
                                          testing::Values(sim::Framing::kPlain,
                                                          sim::Framing::kStamped)),
                         [](const auto& test) {
                           return "ProductType" + std::to_string(std::get<0>(test.param)) +
                                  (std::get<1>(test.param) == sim::Framing::kPlain ? "Plain"
                                                                                   : "Stamped");
                         });

}  // namespace
