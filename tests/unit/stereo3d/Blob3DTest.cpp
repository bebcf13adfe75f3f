#include <alg_factory/stereo3d/Blob3D.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iostream>
#include <limits>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/support/RecordingLog.h>
#include <tests/unit/stereo3d/FisheyePair.h>

namespace {

using algorithm::Blob2DPoint;
using algorithm::Blob3D;
using algorithm::StereoCalibration;
using algorithm::StereoPoint;
using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::blob;
using testing_support::FisheyePair;
using testing_support::RecordingLog;

// Read before any stage of this process was set up, whichever tests run in it.
const double kMaxDepthAtStart = Blob3D::maxDepth;

/// A 3D point to be seen by both cameras, in the right camera's frame.
struct Target {
  int id;
  double x, y, z;
};

/// The stage between vectors of its own, with the cameras that feed it.
struct Stage {
  FisheyePair pair;
  Blob3D blob3D;
  std::vector<Blob2DPoint> left, right;
  std::vector<StereoPoint> output;

  explicit Stage(std::uint32_t productType, const FisheyePair& cameras = {}) : pair(cameras) {
    setUp(productType);
  }

  void setUp(std::uint32_t productType) {
    const StereoCalibration calibration = pair.calibration();
    EXPECT_TRUE(blob3D.init(productType, &calibration));
    EXPECT_TRUE(blob3D.configure(&left, &right, &output));
  }

  void see(const Target& target, int leftDiameter = 20, int rightDiameter = 20) {
    const Eigen::Vector3d p(target.x, target.y, target.z);
    const auto l = pair.left.fisheye(pair.inLeftFrame(p));
    const auto r = pair.right.fisheye(p);
    left.push_back(blob(l.x, l.y, leftDiameter, target.id));
    right.push_back(blob(r.x, r.y, rightDiameter, target.id));
  }

  const std::vector<StereoPoint>& frame(std::initializer_list<Target> targets) {
    for (const Target& target : targets) see(target);
    EXPECT_TRUE(blob3D.process());
    return output;
  }
};

std::vector<int> ids(const std::vector<StereoPoint>& points) {
  std::vector<int> result;
  for (const StereoPoint& p : points) result.push_back(p.id);
  return result;
}

/// Both blobs lie on the principal point and map to the directions (0, 0, 1) on the right and
/// (1/8, 0, 1), the third column of `rotation`, on the left. With T = (-z/8, 0, 0) all sums are
/// exact in binary and the point is (0, 0, z) to the last bit.
struct ExactDepthStage {
  Blob3D blob3D;
  std::vector<Blob2DPoint> left, right;
  std::vector<StereoPoint> output;

  explicit ExactDepthStage(std::uint32_t productType) { setUp(productType, 1000); }

  void setUp(std::uint32_t productType, double z) {
    StereoCalibration c;
    for (const int i : {0, 4, 8}) {
      c.leftIntrinsics[i] = c.rightIntrinsics[i] = c.rotation[i] = 1;
    }
    c.rotation[2] = 0.125;
    c.translation[0] = -z / 8;
    c.fundamental[5] = 1;  // partners lie in the same row
    c.fundamental[7] = -1;
    EXPECT_TRUE(blob3D.init(productType, &c));
    EXPECT_TRUE(blob3D.configure(&left, &right, &output));
  }

  /// The published depths; an empty frame before makes sure that no earlier frame matters.
  std::vector<double> process() {
    left.clear();
    right.clear();
    blob3D.process();
    left = right = {blob(0, 0, 2, 0)};
    blob3D.process();
    std::vector<double> depths;
    for (const StereoPoint& p : output) depths.push_back(p.z);
    return depths;
  }
};

// --- Settings and binding ---

TEST(Blob3D, NewStageHasNoIds) {
  const Blob3D stage;
  EXPECT_EQ(stage.blobIdCount(), 0);
  EXPECT_THAT(stage.expectedPoints(), IsEmpty());
}

TEST(Blob3D, ProductTypeSelectsIdsExpectedPointsAndDepthLimit) {
  const StereoCalibration calibration = FisheyePair().calibration();
  Blob3D stage;
  EXPECT_TRUE(stage.init(0, &calibration));
  EXPECT_EQ(stage.blobIdCount(), 3);
  EXPECT_THAT(stage.expectedPoints(), ElementsAre(1, 1, 1));
  EXPECT_EQ(Blob3D::maxDepth, 3500.0);

  EXPECT_TRUE(stage.init(2, &calibration));
  EXPECT_EQ(stage.blobIdCount(), 6);
  EXPECT_THAT(stage.expectedPoints(), ElementsAre(1, 1, 1, 1, 1, 1));
  EXPECT_EQ(Blob3D::maxDepth, 4500.0);

  EXPECT_TRUE(stage.init(1, &calibration));
  EXPECT_EQ(stage.blobIdCount(), 3);
  EXPECT_THAT(stage.expectedPoints(), ElementsAre(1, 1, 2));
  EXPECT_EQ(Blob3D::maxDepth, 3500.0);
}

TEST(Blob3D, UnknownProductTypeKeepsTheSettingsAndSaysNothing) {
  const StereoCalibration calibration = FisheyePair().calibration();
  RecordingLog log;
  Blob3D stage;
  EXPECT_TRUE(stage.setLogger(&log));
  const double before = Blob3D::maxDepth;
  EXPECT_TRUE(stage.init(3, &calibration));
  EXPECT_EQ(stage.blobIdCount(), 0);
  EXPECT_THAT(stage.expectedPoints(), IsEmpty());
  EXPECT_EQ(Blob3D::maxDepth, before);

  stage.init(2, &calibration);
  EXPECT_TRUE(stage.init(0xffffffffu, &calibration));
  EXPECT_EQ(stage.blobIdCount(), 6);
  EXPECT_EQ(stage.expectedPoints().size(), 6u);
  EXPECT_EQ(Blob3D::maxDepth, 4500.0);
  EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(Blob3D, FreshStageOfUnknownProductTypePublishesEmptyFrames) {
  Stage stage(3);
  stage.output.resize(4);
  EXPECT_THAT(stage.frame({{0, 0, 0, 1000}, {2, 50, 0, 1000}}), IsEmpty());
  EXPECT_THAT(stage.left, IsEmpty());
  EXPECT_THAT(stage.right, IsEmpty());
}

TEST(Blob3D, UnknownProductTypeTakesTheNewCalibration) {
  Stage stage(0);
  stage.pair = testing_support::unlikePair();
  stage.setUp(7);
  const auto& points = stage.frame({{1, 120, -80, 1500}});
  ASSERT_EQ(points.size(), 1u);
  EXPECT_NEAR(points[0].x, 120, 1e-5);
  EXPECT_NEAR(points[0].z, 1500, 1e-5);
}

TEST(Blob3D, DepthLimitIs3000BeforeAnyInit) {
  EXPECT_EQ(kMaxDepthAtStart, 3000.0);
}

TEST(Blob3D, DepthLimitIsOneForAllStagesAndWrittenByTheLastInit) {
  ExactDepthStage first(0);
  first.setUp(0, 4000);
  EXPECT_THAT(first.process(), IsEmpty());
  ExactDepthStage second(2);
  EXPECT_THAT(first.process(), ElementsAre(4000.0));
  second.setUp(0, 4000);
  EXPECT_THAT(first.process(), IsEmpty());
}

TEST(Blob3D, CalibrationIsTakenByIndexAndNeedNotBeAligned) {
  double values[115];
  for (int i = 0; i < 115; ++i) values[i] = i + 0.5;
  std::vector<unsigned char> bytes(sizeof values + 8);
  for (const std::size_t offset : {1u, 3u, 4u, 7u}) {
    std::memcpy(&bytes[offset], values, sizeof values);
    Blob3D stage;
    EXPECT_TRUE(stage.init(0, &bytes[offset]));
    std::fill(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));

    const StereoCalibration& c = stage.calibration();
    EXPECT_EQ(std::memcmp(&c, values, sizeof values), 0);
    EXPECT_EQ(c.lead, 0.5);
    EXPECT_EQ(c.leftIntrinsics[0], 1.5);  // fx
    EXPECT_EQ(c.leftIntrinsics[2], 3.5);  // cx
    EXPECT_EQ(c.leftIntrinsics[4], 5.5);  // fy
    EXPECT_EQ(c.leftIntrinsics[5], 6.5);  // cy
    EXPECT_EQ(c.leftDistortion[0], 10.5);
    EXPECT_EQ(c.rightIntrinsics[0], 18.5);
    EXPECT_EQ(c.rightDistortion[0], 27.5);
    EXPECT_EQ(c.rotation[0], 35.5);
    EXPECT_EQ(c.translation[0], 44.5);
    EXPECT_EQ(c.fundamental[0], 47.5);
    EXPECT_EQ(c.tail[0], 56.5);
    EXPECT_EQ(c.tail[58], 114.5);
  }
}

TEST(Blob3D, SingularCalibrationIsAcceptedAndYieldsNoPoint) {
  const StereoCalibration zeros;
  Stage stage(0);
  EXPECT_TRUE(stage.blob3D.init(0, &zeros));
  EXPECT_THAT(stage.frame({{0, 0, 0, 1000}}), IsEmpty());
}

TEST(Blob3D, UnboundStageTouchesNothing) {
  const StereoCalibration calibration = FisheyePair().calibration();
  std::vector<Blob2DPoint> blobs = {blob(0, 0, 20, 0)};
  std::vector<StereoPoint> output(3);
  Blob3D stage;
  EXPECT_TRUE(stage.process());
  stage.init(0, &calibration);
  EXPECT_TRUE(stage.process());
  EXPECT_TRUE(stage.configure(nullptr, &blobs, &output));
  EXPECT_TRUE(stage.process());
  EXPECT_TRUE(stage.configure(&blobs, nullptr, &output));
  EXPECT_TRUE(stage.process());
  EXPECT_EQ(blobs.size(), 1u);
  EXPECT_EQ(output.size(), 3u);
}

TEST(Blob3D, ConfigureBindsOnlyIfPrepareSucceeds) {
  struct Refusing : Blob3D {
    bool refuse = false;
    bool prepare() override { return !refuse && Blob3D::prepare(); }
  };
  const StereoCalibration calibration = FisheyePair().calibration();
  std::vector<Blob2DPoint> left, right, otherLeft(1), otherRight(1);
  std::vector<StereoPoint> output(2), otherOutput(2);
  Refusing stage;
  stage.init(0, &calibration);
  EXPECT_TRUE(stage.configure(&left, &right, &output));
  stage.refuse = true;
  EXPECT_FALSE(stage.configure(&otherLeft, &otherRight, &otherOutput));
  EXPECT_TRUE(stage.process());
  EXPECT_THAT(output, IsEmpty());
  EXPECT_EQ(otherLeft.size(), 1u);
  EXPECT_EQ(otherRight.size(), 1u);
  EXPECT_EQ(otherOutput.size(), 2u);
}

TEST(Blob3D, PrepareSizesTheListsByTheIdCount) {
  Blob3D stage;
  EXPECT_TRUE(stage.prepare());  // no ids yet: everything stays empty
  const StereoCalibration calibration = FisheyePair().calibration();
  stage.init(2, &calibration);
  EXPECT_THAT(stage.historyById(), IsEmpty());
  EXPECT_TRUE(stage.prepare());
  EXPECT_EQ(stage.historyById().size(), 6u);
  stage.init(0, &calibration);
  stage.prepare();
  EXPECT_EQ(stage.historyById().size(), 3u);
}

// --- One frame ---

TEST(Blob3D, FindsRandomPointsOfUnlikeTurnedFisheyeCameras) {
  constexpr unsigned kSeed = 31337;
  std::cout << "seed " << kSeed << '\n';
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<double> slope(-0.45, 0.45), depth(300, 3000);
  for (int round = 0; round < 100; ++round) {
    Stage stage(2, testing_support::unlikePair());
    std::vector<Eigen::Vector3d> truth;
    for (int id = 0; id < 6; ++id) {
      const double z = depth(random);
      truth.push_back({slope(random) * z, slope(random) * z, z});
      stage.see({id, truth.back().x(), truth.back().y(), z}, 4, 2 * id);
    }
    EXPECT_TRUE(stage.blob3D.process());

    ASSERT_THAT(ids(stage.output), ElementsAre(0, 1, 2, 3, 4, 5));
    for (std::size_t i = 0; i < 6; ++i) {
      const StereoPoint& p = stage.output[i];
      const Eigen::Vector3d position(p.x, p.y, p.z);
      EXPECT_LT((position - truth[i]).norm(), 1e-4) << truth[i].transpose();
      const auto l = stage.pair.left.pinhole(stage.pair.inLeftFrame(truth[i]));
      const auto r = stage.pair.right.pinhole(truth[i]);
      EXPECT_NEAR(p.leftX, l.x, 1e-6);
      EXPECT_NEAR(p.leftY, l.y, 1e-6);
      EXPECT_NEAR(p.rightX, r.x, 1e-6);
      EXPECT_NEAR(p.rightY, r.y, 1e-6);
      EXPECT_EQ(p.diameter, 2 + static_cast<int>(i));  // (4 + 2 id) / 2
    }
  }
}

TEST(Blob3D, InverseOfTheLeftCameraMatrixIsTheGeneralOne) {
  // K = [1, s, 0; 0, 1, 0; g, 0, 1] with s = 0.5, g = 1: K (x, y, z) = (a, b, 1) has y = b,
  // x = a - s b, z = 1 - g x. For the undistorted pixel (0.5, 0.25) that is (0.375, 0.25, 0.625),
  // and 1600 times it ends at (600, 400, 1000). The right ray is the z axis.
  Stage stage(0);
  StereoCalibration c = FisheyePair().calibration();
  const double k[9] = {1, 0.5, 0, 0, 1, 0, 1, 0, 1};
  std::memcpy(c.leftIntrinsics, k, sizeof k);
  c.translation[0] = -600;
  c.translation[1] = -400;
  stage.blob3D.init(0, &c);
  const auto raw =
      testing_support::FisheyeCamera{1, 1, 0, 0, {}}.fisheye(Eigen::Vector3d(0.5, 0.25, 1));
  stage.left = {blob(raw.x, raw.y, 20, 1)};
  stage.right = {blob(0, 0, 20, 1)};
  EXPECT_TRUE(stage.blob3D.process());
  ASSERT_EQ(stage.output.size(), 1u);
  EXPECT_NEAR(stage.output[0].x, 0, 1e-9);
  EXPECT_NEAR(stage.output[0].y, 0, 1e-9);
  EXPECT_NEAR(stage.output[0].z, 1000, 1e-9);
}

TEST(Blob3D, InverseOfTheRightCameraMatrixIsTheGeneralOne) {
  // The same matrix on the right: the point is (600, 400, 1000) itself, the left ray, along the z
  // axis from (600, 400, 0), passes through it.
  Stage stage(0);
  StereoCalibration c = FisheyePair().calibration();
  const double k[9] = {1, 0.5, 0, 0, 1, 0, 1, 0, 1};
  std::memcpy(c.rightIntrinsics, k, sizeof k);
  c.translation[0] = 600;
  c.translation[1] = 400;
  stage.blob3D.init(0, &c);
  const auto raw =
      testing_support::FisheyeCamera{1, 1, 0, 0, {}}.fisheye(Eigen::Vector3d(0.5, 0.25, 1));
  stage.left = {blob(0, 0, 20, 1)};
  stage.right = {blob(raw.x, raw.y, 20, 1)};
  EXPECT_TRUE(stage.blob3D.process());
  ASSERT_EQ(stage.output.size(), 1u);
  EXPECT_NEAR(stage.output[0].x, 600, 1e-9);
  EXPECT_NEAR(stage.output[0].y, 400, 1e-9);
  EXPECT_NEAR(stage.output[0].z, 1000, 1e-9);
}

TEST(Blob3D, OutputListsIdsInAscendingOrder) {
  Stage stage(1);
  EXPECT_THAT(ids(stage.frame({{2, 0, 0, 1000},
                               {0, 50, 0, 1000},
                               {2, 300, 90, 1000},  //
                               {1, -50, 0, 1000}})),
              ElementsAre(0, 1, 2, 2));
}

TEST(Blob3D, InputsAreEmptiedAndTheOutputReplaced) {
  Stage stage(0);
  stage.output.resize(7);
  EXPECT_EQ(stage.frame({{0, 0, 0, 1000}}).size(), 1u);
  EXPECT_THAT(stage.left, IsEmpty());
  EXPECT_THAT(stage.right, IsEmpty());
  EXPECT_THAT(stage.frame({}), IsEmpty());

  stage.left = {blob(3, 3, 4, 0), blob(4, 4, 4, 1)};  // a camera alone
  EXPECT_THAT(stage.frame({}), IsEmpty());
  EXPECT_THAT(stage.left, IsEmpty());
}

TEST(Blob3D, InputAndOutputStorageIsExchangedNotCopied) {
  Stage stage(0);
  stage.left.reserve(64);
  stage.right.reserve(64);
  stage.output.reserve(64);
  const auto* leftStorage = stage.left.data();
  const auto* rightStorage = stage.right.data();
  const auto* outputStorage = stage.output.data();
  stage.frame({{0, 0, 0, 1000}});
  EXPECT_NE(stage.left.data(), leftStorage);
  EXPECT_NE(stage.right.data(), rightStorage);
  EXPECT_NE(stage.output.data(), outputStorage);
  stage.frame({{0, 0, 0, 1000}});
  EXPECT_EQ(stage.left.data(), leftStorage);
  EXPECT_EQ(stage.right.data(), rightStorage);
  EXPECT_EQ(stage.output.data(), outputStorage);
}

TEST(Blob3D, CameraWithoutBlobsLeavesNoPairs) {
  Stage stage(0);
  stage.frame({{0, 0, 0, 1000}, {1, 100, 0, 1000}});
  EXPECT_EQ(stage.blob3D.pairs().size(), 2u);

  stage.see({0, 0, 0, 1000});
  stage.left.clear();
  EXPECT_THAT(stage.frame({}), IsEmpty());
  EXPECT_THAT(stage.blob3D.pairs(), IsEmpty());

  stage.see({0, 0, 0, 1000});
  stage.right.clear();
  EXPECT_THAT(stage.frame({}), IsEmpty());
  EXPECT_THAT(stage.blob3D.pairs(), IsEmpty());
}

TEST(Blob3D, FirstFrameMayComeFromOneCameraAlone) {
  for (const bool leftSees : {true, false}) {
    Stage stage(0);
    stage.see({0, 0, 0, 1000});
    (leftSees ? stage.right : stage.left).clear();
    EXPECT_THAT(stage.frame({}), IsEmpty());
  }
}

TEST(Blob3D, BlobsOfDifferentIdsAreNeverPaired) {
  Stage stage(0);
  stage.see({1, 0, 0, 1000});
  stage.right[0].id = 2;
  EXPECT_THAT(stage.frame({}), IsEmpty());
}

TEST(Blob3D, BlobOfAnIdOutsideTheRangeIsIgnored) {
  Stage stage(0);
  EXPECT_THAT(ids(stage.frame({{3, 0, 0, 1000}, {-1, 100, 0, 1000}, {1, 50, 0, 1000}})),
              ElementsAre(1));
}

TEST(Blob3D, PairsHoldTheUndistortedBlobWithItsLine) {
  // Rectified pair, T = (-100, 0, 0): the partner of a left blob in row y lies in row y.
  Stage stage(0);
  stage.frame({{1, 200, 300, 1000}});
  const auto& pairs = stage.blob3D.pairs();
  ASSERT_EQ(pairs.size(), 1u);
  const Blob2DPoint& left = *pairs[0].left;
  const Blob2DPoint& right = *pairs[0].right;
  EXPECT_NEAR(left.x, 150, 1e-9);  // (200 + 100) / 1000 * 500
  EXPECT_NEAR(left.y, 150, 1e-9);
  EXPECT_NEAR(right.x, 100, 1e-9);
  for (const Blob2DPoint& b : {left, right}) {
    EXPECT_NEAR(b.aux[0], 0, 1e-12);
    EXPECT_NEAR(std::fabs(b.aux[1]), 1, 1e-12);
    EXPECT_NEAR(b.aux[1] * 150 + b.aux[2], 0, 1e-9);
  }
}

TEST(Blob3D, ParallelRaysPublishNothing) {
  Stage stage(0);
  stage.left = stage.right = {blob(30, 40, 20, 0)};
  EXPECT_THAT(stage.frame({}), IsEmpty());
}

TEST(Blob3D, PointAtExactly10IsDropped) {
  ExactDepthStage stage(0);
  stage.setUp(0, 10.0);
  EXPECT_THAT(stage.process(), IsEmpty());
  const double justAbove = std::nextafter(10.0, 11.0);
  stage.setUp(0, justAbove);
  EXPECT_THAT(stage.process(), ElementsAre(justAbove));
}

TEST(Blob3D, PointAtExactlyTheDepthLimitIsKept) {
  ExactDepthStage stage(0);
  for (const std::uint32_t type : {0u, 1u, 2u}) {
    const double limit = type == 2 ? 4500.0 : 3500.0;
    stage.setUp(type, limit);
    EXPECT_THAT(stage.process(), ElementsAre(limit));
    stage.setUp(type, std::nextafter(limit, 1e9));
    EXPECT_THAT(stage.process(), IsEmpty());
  }
}

// --- Filters, in their order ---

TEST(Blob3D, ReferenceTestRunsForProductTypes0And1Only) {
  // Id 0 is 1500 behind the reference, id 1 is 1100 behind it.
  const auto frame = {Target{0, 0, 0, 2500}, Target{1, 40, 0, 2100}, Target{2, 0, 0, 1000}};
  EXPECT_THAT(ids(Stage(0).frame(frame)), ElementsAre(1, 2));
  EXPECT_THAT(ids(Stage(1).frame(frame)), ElementsAre(1, 2));
  EXPECT_THAT(ids(Stage(2).frame(frame)), ElementsAre(0, 1, 2));
  Stage unknown(0);
  unknown.setUp(5);
  EXPECT_THAT(ids(unknown.frame(frame)), ElementsAre(0, 1, 2));
}

TEST(Blob3D, ReferenceTestUsesTheMeanOfTwoPointsOfProductType1) {
  // Mean (0, 0, 1000); id 0 is 1150 away from it but sqrt(200^2 + 1150^2) = 1167 from each point;
  // id 1 is 1210 away.
  Stage stage(1);
  EXPECT_THAT(ids(stage.frame(
                  {{0, 0, 0, 2150}, {1, 60, 0, 2208.5}, {2, -200, 0, 1000}, {2, 200, 0, 1000}})),
              ElementsAre(0, 2, 2));
}

TEST(Blob3D, ReferenceTestIsSkippedWithThreePointsOfId2ThenOneIsRemoved) {
  Stage stage(1);
  const auto& points =
      stage.frame({{0, 0, 0, 2500}, {2, -200, 0, 1000}, {2, 200, 0, 1000}, {2, 0, 200, 1000}});
  ASSERT_THAT(ids(points), ElementsAre(0, 2, 2));
  EXPECT_NEAR(points[1].x, -200, 1e-6);  // the first two in the order of the left blobs
  EXPECT_NEAR(points[2].x, 200, 1e-6);
}

TEST(Blob3D, PointsBeyondTheDepthLimitDoNotCountAsReference) {
  // With the third point of id 2 (too deep) counted, the reference test would be skipped.
  Stage stage(1);
  EXPECT_THAT(
      ids(stage.frame({{0, 0, 0, 2500}, {2, -200, 0, 1000}, {2, 200, 0, 1000}, {2, 0, 700, 3600}})),
      ElementsAre(2, 2));
}

TEST(Blob3D, PointsThatJumpedDoNotCountAsReference) {
  // The third point of id 2 is 400 from the previous frame's mean (0, 0, 1000), the two are 100.
  Stage stage(1);
  stage.frame({{2, -100, 0, 1000}, {2, 100, 0, 1000}});
  EXPECT_THAT(
      ids(stage.frame({{0, 0, 0, 2500}, {2, -100, 0, 1000}, {2, 100, 0, 1000}, {2, 0, 400, 1000}})),
      ElementsAre(2, 2));
}

TEST(Blob3D, SurplusIsCutAfterJumpsAreRemoved) {
  // Two points of id 0: the first has jumped, so the second is no surplus.
  Stage stage(0);
  stage.frame({{0, 0, 0, 1000}});
  const auto& points = stage.frame({{0, 300, 0, 1000}, {0, 0, 100, 1000}});
  ASSERT_EQ(points.size(), 1u);
  EXPECT_NEAR(points[0].y, 100, 1e-6);
}

TEST(Blob3D, FirstFrameKeepsTheFirstOfTwoPointsOfOneId) {
  Stage stage(0);
  const auto& points = stage.frame({{0, 100, 50, 1000}, {0, 0, 0, 1000}});
  ASSERT_EQ(points.size(), 1u);
  EXPECT_NEAR(points[0].x, 100, 1e-6);
}

TEST(Blob3D, LaterFrameKeepsThePointNearestToThePreviousFrame) {
  Stage stage(0);
  stage.frame({{0, 0, 0, 1000}});
  const auto& points = stage.frame({{0, 100, 50, 1000}, {0, 20, 0, 1000}});
  ASSERT_EQ(points.size(), 1u);
  EXPECT_NEAR(points[0].x, 20, 1e-6);
}

TEST(Blob3D, JumpIsMeasuredFromThePublishedPoint) {
  // Raw 0 then 2.7: d = 2.7, w = 0.9, published (2.7 + 0.1 * 0 + 0.9 * 2.7) / 2 = 2.565. The third
  // point is 149.915 from the raw 2.7 but 150.05 from the published 2.565.
  Stage stage(0);
  stage.frame({{0, 0, 0, 1000}});
  ASSERT_NEAR(stage.frame({{0, 2.7, 0, 1000}}).at(0).x, 2.565, 1e-6);
  EXPECT_THAT(stage.frame({{0, 152.615, 0, 1000}}), IsEmpty());
}

TEST(Blob3D, JumpWithin150IsKept) {
  Stage stage(0);
  stage.frame({{0, 0, 0, 1000}});
  EXPECT_EQ(stage.frame({{0, 149.9, 0, 1000}}).size(), 1u);
}

TEST(Blob3D, FrameWithoutPointsEndsTheMemoryOfThePreviousFrame) {
  Stage stage(0);
  stage.frame({{0, 0, 0, 1000}});
  EXPECT_THAT(stage.frame({{0, 400, 0, 1000}}), IsEmpty());
  EXPECT_EQ(stage.frame({{0, 400, 0, 1000}}).size(), 1u);
}

TEST(Blob3D, PreviousPointsAreACopyOfWhatWasPublished) {
  Stage stage(0);
  stage.frame({{0, 0, 0, 1000}, {2, 50, 0, 1000}});
  ASSERT_EQ(stage.blob3D.previousPoints().size(), 2u);
  EXPECT_EQ(stage.blob3D.previousPoints()[1].x, stage.output[1].x);
  stage.output.clear();  // the host of the vector may do as it likes
  EXPECT_EQ(stage.blob3D.previousPoints().size(), 2u);
}

// --- Smoothing over frames ---

TEST(Blob3D, SmoothsWithinThreeUnitsOverThreeRawFrames) {
  // x: raw 0, 1.5, 3, 0.
  // 2nd: H 0 (d 1.5, w 1/2): (1.5 + 0.75) / 2 = 1.125.
  // 3rd: H 1.5 (w 1/2): 2.25; H 0 lies at 3.0: no effect. (3 + 2.25) / 2 = 2.625.
  // 4th: H 3: no effect; H 1.5 (w 1/2): 0.75; H 0 (w 0): 0. (0 + 0.75 + 0) / 3 = 0.25.
  Stage stage(2);
  EXPECT_NEAR(stage.frame({{4, 0, 0, 1000}}).at(0).x, 0, 1e-6);
  EXPECT_NEAR(stage.frame({{4, 1.5, 0, 1000}}).at(0).x, 1.125, 1e-6);
  // A hair beyond 3.0, as the projection is not exact to the last bit.
  EXPECT_NEAR(stage.frame({{4, 3.000001, 0, 1000}}).at(0).x, 2.625, 1e-5);
  EXPECT_NEAR(stage.frame({{4, 0, 0, 1000}}).at(0).x, 0.25, 1e-5);
  ASSERT_EQ(stage.blob3D.historyById()[4].size(), 3u);
  EXPECT_NEAR(stage.blob3D.historyById()[4][0].x, 1.5, 1e-6);
  EXPECT_NEAR(stage.blob3D.historyById()[4][2].x, 0, 1e-6);
}

TEST(Blob3D, IdAbsentForOneFrameLosesItsHistory) {
  Stage stage(0);
  stage.frame({{0, 0, 0, 1000}, {1, 100, 0, 1000}});
  stage.frame({{1, 100, 0, 1000}});
  EXPECT_TRUE(stage.blob3D.historyById()[0].empty());
  const auto& points = stage.frame({{0, 1.5, 0, 1000}, {1, 101.5, 0, 1000}});
  ASSERT_EQ(points.size(), 2u);
  EXPECT_NEAR(points[0].x, 1.5, 1e-6);
  // Two history points at 100, w = 1/2: (101.5 + 2 * 100.75) / 3.
  EXPECT_NEAR(points[1].x, 101, 1e-6);
}

TEST(Blob3D, OnlyTheFirstPointOfAnIdIsSmoothed) {
  Stage stage(1);
  stage.frame({{2, -100, 0, 1000}, {2, 100, 0, 1000}});
  const auto& points = stage.frame({{2, -98.5, 0, 1000}, {2, 101.5, 0, 1000}});
  ASSERT_EQ(points.size(), 2u);
  EXPECT_NEAR(points[0].x, -98.875, 1e-6);  // -98.5 - 1.5 / 4
  EXPECT_NEAR(points[1].x, 101.5, 1e-6);
}

// --- Set up again ---

TEST(Blob3D, SecondInitKeepsHistoriesAndThePreviousFrame) {
  Stage stage(0);
  stage.frame({{0, 0, 0, 1000}, {1, 100, 0, 1000}});
  stage.setUp(2);
  // Id 0 is smoothed with the point from before: 1.5 - 1.5 / 4. Id 1 has jumped.
  const auto& points = stage.frame({{0, 1.5, 0, 1000}, {1, 300, 0, 1000}, {5, 60, 60, 1000}});
  ASSERT_THAT(ids(points), ElementsAre(0, 5));
  EXPECT_NEAR(points[0].x, 1.125, 1e-6);

  stage.setUp(0);
  stage.setUp(2);
  EXPECT_EQ(stage.blob3D.historyById()[0].size(), 2u);
  EXPECT_TRUE(stage.blob3D.historyById()[5].empty());  // its list did not outlive type 0
  stage.setUp(9);
  EXPECT_EQ(stage.blob3D.historyById()[0].size(), 2u);
}

TEST(Blob3D, SecondInitWithAnotherTypeChangesTheNumberOfIds) {
  Stage stage(0);
  EXPECT_THAT(ids(stage.frame({{2, 0, 0, 1000}, {4, 50, 0, 1000}})), ElementsAre(2));
  stage.setUp(2);
  EXPECT_THAT(ids(stage.frame({{2, 0, 0, 1000}, {4, 50, 0, 1000}})), ElementsAre(2, 4));
  stage.setUp(1);
  EXPECT_THAT(ids(stage.frame({{2, 0, 0, 1000}, {4, 50, 0, 1000}})), ElementsAre(2));
}

TEST(Blob3D, SecondConfigureMovesToTheNewVectors) {
  Stage stage(0);
  std::vector<Blob2DPoint> left, right;
  std::vector<StereoPoint> output;
  stage.see({1, 0, 0, 1000});
  EXPECT_TRUE(stage.blob3D.configure(&left, &right, &output));
  left = stage.left;
  right = stage.right;
  EXPECT_TRUE(stage.blob3D.process());
  EXPECT_THAT(ids(output), ElementsAre(1));
  EXPECT_THAT(stage.output, IsEmpty());
  EXPECT_EQ(stage.left.size(), 1u);
}

TEST(Blob3D, NoFrameIsEverLogged) {
  RecordingLog log;
  Stage stage(0);
  EXPECT_TRUE(stage.blob3D.setLogger(&log));
  stage.frame({{0, 0, 0, 1000}, {0, 0, 0, 5}, {1, 0, 0, 9000}, {8, 0, 0, 100}});
  stage.frame({});
  EXPECT_THAT(log.texts(), IsEmpty());
}

}  // namespace
