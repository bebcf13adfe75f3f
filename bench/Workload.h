// The packets that benchmarks feed: from the simulator, many different frames of one kind.
#pragma once

#include <sim/Simulator.h>

#include <string>
#include <vector>

namespace bench {

struct Workload {
  std::string name;
  int productType = 2;
  int streamType = 0;
  int records = 0;  ///< blobs in every packet
  rig::StereoRig rig;
  /// 257 different frames, forwards and then backwards: played in a circle, nothing ever jumps.
  std::vector<sim::Bytes> payloads;
};

constexpr double kPixelNoise = 0.05;

/// The simulator's own moving scene: 6, 8 and 12 blobs a packet for product types 0, 1 and 2.
/// @throws std::runtime_error when a frame does not have that many blobs
Workload movingScene(int productType, sim::Framing framing, double pixelNoise = kPixelNoise);

/// Product type 2 with any even number of blobs from 2 to 42, spread evenly over the six ids.
/// With 12 these are the packets of `movingScene(2)`; with 42 they are as full as packets get.
Workload spreadBlobs(int records, double pixelNoise = kPixelNoise);

/// Product type 2 with any even number of blobs from 2 to 42, all of id 0.
Workload blobsOfOneId(int records);

}  // namespace bench
