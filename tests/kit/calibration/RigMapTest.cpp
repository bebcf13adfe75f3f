#include <alg_factory/api/DataSink.h>
#include <alg_factory/api/LogSink.h>
#include <alg_factory/service/ResultBlock.h>
#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/RigMap.h>
#include <alg_kit/calibration/RigMapPage.h>
#include <alg_kit/rig/FisheyeCamera.h>
#include <alg_kit/trace/FreshAlg.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sim/BlobSource.h>
#include <sim/PacketWriter.h>
#include <sim/Random.h>

#include <Eigen/Dense>
#include <cmath>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace calibration {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// Two parallel cameras side by side, 400 px and 100 mm.
rig::StereoRig sidewaysRig(double baseline = 100) {
  return {rig::makeCalibration({400, 400, 320, 240}, {0, 0, 0, 0}, {400, 400, 320, 240},
                               {0, 0, 0, 0}, Eigen::Matrix3d::Identity(), {-baseline, 0, 0}),
          640, 480};
}

// Figures are worked out for the axis, where all lens models agree.
TEST(RigMap, OnTheAxisDeviationsAreThoseOfTheTextbook) {
  RigMapOptions options;
  options.noise = 0.1;
  const double z = 2000, f = 400, b = 100;
  // Midway between the cameras: sigma_z = z^2 sqrt(2) s / (f b), up to the squares of b / z.
  const MapPlace place = placeAt(sidewaysRig(), options, {-b / 2, 0, z});
  ASSERT_EQ(place.loss, PlaceLoss::kNone);
  EXPECT_NEAR(place.deviation.z(), z * z * std::sqrt(2.0) * 0.1 / (f * b), 0.1);
  // Both cameras measure y: sigma_y = z s / f / sqrt(2).
  EXPECT_NEAR(place.deviation.y(), z * 0.1 / f / std::sqrt(2.0), 0.005);
  EXPECT_LT(place.bias, 0.01);
  EXPECT_NEAR(place.accepted, 1, 1e-12);
}

TEST(RigMap, TwiceTheBaselineHalvesTheErrorOfDepth) {
  const RigMapOptions options;
  const auto narrow = mapOf(sidewaysRig(100), options);
  const auto wide = mapOf(sidewaysRig(200), options);
  for (std::size_t i = 0; i < narrow.table.size(); ++i)
    if (narrow.table[i].depth >= 1000) {
      EXPECT_NEAR(narrow.table[i].deviation.z() / wide.table[i].deviation.z(), 2, 0.2);
    }
  EXPECT_GT(narrow.volume, wide.volume);  // and less is seen by both
}

TEST(RigMap, KnowsWhyAPlaceIsLost) {
  const auto rig = sidewaysRig();
  RigMapOptions options;
  EXPECT_EQ(placeAt(rig, options, {0, 0, 5}).loss, PlaceLoss::kTooNear);
  EXPECT_EQ(placeAt(rig, options, {0, 0, 4501}).loss, PlaceLoss::kTooDeep);
  options.productType = 1;
  EXPECT_EQ(placeAt(rig, options, {0, 0, 3501}).loss, PlaceLoss::kTooDeep);
  EXPECT_EQ(placeAt(rig, options, {0, 0, 3499}).loss, PlaceLoss::kNone);
  EXPECT_EQ(placeAt(rig, options, {3000, 0, 1000}).loss, PlaceLoss::kRight);
  EXPECT_EQ(placeAt(rig, options, {650, 0, 700}).loss, PlaceLoss::kLeft);
  // A marker of 1 mm at 3 m has a diameter of 0.1 px, which the library takes for none.
  options.markerDiameter = 1;
  EXPECT_EQ(placeAt(rig, options, {0, 0, 3000}).loss, PlaceLoss::kRefused);
}

TEST(RigMap, BlobsHaveTheDiameterOfTheLibrarysTable) {
  // Weights 87, 778 and 2160 are the first with diameters 2, 4 and 6.
  const auto imaged = [](double weight) { return std::sqrt(weight / 110 * 4 / 3.141592653589793); };
  EXPECT_EQ(blobDiameter(imaged(86)), 0);
  EXPECT_EQ(blobDiameter(imaged(87)), 2);
  EXPECT_EQ(blobDiameter(imaged(777)), 2);
  EXPECT_EQ(blobDiameter(imaged(778)), 4);
  EXPECT_EQ(blobDiameter(imaged(2160)), 6);
}

TEST(RigMap, RefusesNumbersOutsideTheirRange) {
  for (const double bad : {-1.0, 1e9, std::nan("")}) {
    RigMapOptions options;
    options.noise = bad;
    EXPECT_THROW(mapOf(sidewaysRig(), options), std::invalid_argument);
    options = {};
    options.markerDiameter = bad;
    EXPECT_THROW(mapOf(sidewaysRig(), options), std::invalid_argument);
  }
  RigMapOptions options;
  options.productType = 3;
  EXPECT_THROW(mapOf(sidewaysRig(), options), std::invalid_argument);
}

TEST(RigMap, ThePageHoldsItsDataAndNoWayOut) {
  std::ostringstream page;
  writePage(page, {{"</script><script>alert(1)</script>", mapOf(sidewaysRig(), {})}});
  EXPECT_THAT(page.str(), HasSubstr("script-src 'sha256-"));
  EXPECT_THAT(page.str(), Not(HasSubstr("unsafe-inline")));
  EXPECT_THAT(page.str(), Not(HasSubstr("<script>alert")));
  EXPECT_THAT(page.str(), Not(HasSubstr("@MAP_DATA@")));
}

/// Takes the first position of every block.
struct Sink : algorithm::DataSink, algorithm::LogSink {
  bool Deliver(const void* block, int, int) override {
    algorithm::ResultBlock result;
    std::memcpy(&result, block, sizeof result);
    const auto& record = result.records[0];
    seen = record.id == 0;
    position = {record.x, -record.y, -record.z};
    return true;
  }
  bool Log(int, const char*) override { return true; }
  bool seen = false;
  Eigen::Vector3d position;
};

/// Random blobs of one marker through the whole library, over and over: the spread of what it
/// delivers is what the map says. An empty packet between two keeps each point unsmoothed.
TEST(RigMap, AgreesWithTheRealPipelineAtTwoHundredPlaces) {
  const auto rig = rig::builtInRig();
  RigMapOptions options;
  options.noise = 0.1;
  const auto left = rig::cameraOf(rig, rig::Camera::kLeft);
  const auto right = rig::cameraOf(rig, rig::Camera::kRight);
  sim::Random random(7);
  trace::FreshAlg alg;
  Sink sink;
  alg.SetDataCallback(&sink);
  alg.SetLogCallback(&sink);
  ASSERT_TRUE(alg.Init(2, reinterpret_cast<const unsigned char*>(&rig.calibration), 0));
  sim::Bytes packet;
  const auto feed = [&](const std::vector<sim::BlobRecord>& blobs) {
    sim::writeDevicePacket(blobs, packet);
    sink.seen = false;
    alg.InputStream(0, packet.data(), 0, static_cast<int>(packet.size()));
  };
  constexpr int kDraws = 1500;  // a standard deviation of them is within 1.8 %
  int places = 0;
  while (places < 200) {
    const double z = random.uniform(400, 4300);
    const Eigen::Vector3d p_R(random.uniform(-1, 1) * z, random.uniform(-1, 1) * z, z);
    const MapPlace place = placeAt(rig, options, p_R);
    if (place.loss != PlaceLoss::kNone) continue;
    const auto l = left.imageOf(rig::rightToLeft(rig.calibration, p_R), options.markerDiameter);
    const auto r = right.imageOf(p_R, options.markerDiameter);
    const auto noisy = [&](rig::FisheyeCamera::Image image) {
      image.x = std::max(0.0, image.x + options.noise * random.normal());
      image.y = std::max(0.0, image.y + options.noise * random.normal());
      return image;
    };
    Eigen::Vector3d sum = Eigen::Vector3d::Zero(), squares = sum;
    double distanceSum = 0, distanceSquares = 0;
    int count = 0;
    for (int i = 0; i < kDraws; ++i) {
      feed({sim::blobRecord(0, rig::Camera::kLeft, noisy(*l)),
            sim::blobRecord(0, rig::Camera::kRight, noisy(*r))});
      if (sink.seen) {
        const Eigen::Vector3d off = sink.position - p_R;
        const double distance = sink.position.norm() - p_R.norm();
        sum += off;
        squares += off.cwiseProduct(off);
        distanceSum += distance;
        distanceSquares += distance * distance;
        ++count;
      }
      feed({});
    }
    EXPECT_NEAR(static_cast<double>(count) / kDraws, place.accepted, 0.05) << p_R.transpose();
    const Eigen::Vector3d mean = sum / count;
    for (int axis = 0; axis < 3; ++axis) {
      const double spread = std::sqrt(squares[axis] / count - mean[axis] * mean[axis]);
      EXPECT_NEAR(spread / place.deviation[axis], 1, 0.1) << axis << " at " << p_R.transpose();
    }
    const double distanceMean = distanceSum / count;
    EXPECT_NEAR(
        std::sqrt(distanceSquares / count - distanceMean * distanceMean) / place.distanceDeviation,
        1, 0.1)
        << p_R.transpose();
    ++places;
  }
}

}  // namespace
}  // namespace calibration
