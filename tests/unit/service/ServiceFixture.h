#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <Eigen/Core>

#include <alg_factory/api/DataSink.h>
#include <alg_factory/service/StereoService.h>
#include <alg_kit/rig/FisheyeCamera.h>
#include <alg_kit/rig/StereoRig.h>
#include <sim/PacketWriter.h>
#include <tests/support/RecordingLog.h>

namespace algorithm {

/// Keeps every delivered block; `whileDelivering` runs inside the delivery.
class RecordingData : public DataSink {
 public:
  bool Deliver(const void* buffer, int offset, int length) override {
    EXPECT_EQ(offset, 0);
    EXPECT_EQ(length, 528);
    blocks.push_back(*static_cast<const ResultBlock*>(buffer));
    if (whileDelivering) whileDelivering();
    return false;  // ignored
  }

  std::vector<ResultBlock> blocks;
  std::function<void()> whileDelivering;
};

/// A marker in the right camera's frame, mm.
struct Marker {
  int id;
  double x, y, z;
  std::uint32_t weight = 50000;  ///< 24 px of diameter; positions are read to 1/50000 px
};

/// For what the contract tests cannot see from outside: filters, stages, the working area.
/// A service of its own per test, with sinks, and markers as two cameras see them: side by side at
/// 100 mm, without rotation, 500 px of focal length.
class ServiceFixture : public testing::Test {
 protected:
  void SetUp() override {
    service_.setLogCallback(&log_);
    service_.setDataCallback(&data_);
  }

  static StereoCalibration calibration() {
    const Eigen::Vector4d lens(500, 500, 320, 240);
    return rig::makeCalibration(lens, Eigen::Vector4d::Zero(), lens, Eigen::Vector4d::Zero(),
                                Eigen::Matrix3d::Identity(), Eigen::Vector3d(-100, 0, 0));
  }

  bool initialize(int productType) {
    const StereoCalibration record = calibration();
    return service_.initialize(productType, reinterpret_cast<const unsigned char*>(&record), 0);
  }

  static sim::Bytes packetOf(const std::vector<Marker>& markers) {
    const StereoCalibration record = calibration();
    const rig::FisheyeCamera lens(record.leftIntrinsics, record.leftDistortion, 640, 480);
    std::vector<sim::BlobRecord> blobs;
    for (const Marker& marker : markers) {
      for (const rig::Camera camera : {rig::Camera::kLeft, rig::Camera::kRight}) {
        const double shift = camera == rig::Camera::kLeft ? 100 : 0;
        const auto pixel = lens.project({marker.x + shift, marker.y, marker.z}).value();
        sim::BlobRecord blob;
        blob.id = marker.id;
        blob.camera = camera;
        blob.weight = marker.weight;
        blob.sumX = static_cast<std::uint32_t>(std::lround(pixel.x() * marker.weight));
        blob.sumY = static_cast<std::uint32_t>(std::lround(pixel.y() * marker.weight));
        blobs.push_back(blob);
      }
    }
    return sim::devicePacket(blobs);
  }

  bool input(int streamType, const sim::Bytes& payload) {
    return service_.inputStream(streamType, payload.data(), 0, static_cast<int>(payload.size()));
  }

  /// One plain frame (stream type 0); returns its block.
  const ResultBlock& frame(const std::vector<Marker>& markers) {
    EXPECT_TRUE(input(0, packetOf(markers)));
    return data_.blocks.back();
  }

  /// One stamped frame (stream type 2); returns its block.
  const ResultBlock& stampedFrame(std::uint32_t stamp, const std::vector<Marker>& markers) {
    EXPECT_TRUE(input(2, sim::frameType2(stamp, packetOf(markers))));
    return data_.blocks.back();
  }

  PoseAnswer pose(int eventType, const void* in = nullptr) {
    PoseAnswer answer;
    answer.id = 99;
    EXPECT_TRUE(service_.handleEvent(eventType, in, &answer));
    return answer;
  }

  PoseAnswer poseAt(std::uint64_t stamp) { return pose(2, &stamp); }

  testing_support::RecordingLog log_;
  RecordingData data_;
  StereoService service_;
};

}  // namespace algorithm
