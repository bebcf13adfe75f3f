#pragma once

#include <alg_kit/rig/FisheyeCamera.h>
#include <sim/PacketWriter.h>
#include <sim/Random.h>
#include <sim/Scene.h>

#include <optional>
#include <vector>

namespace sim {

/// Hides markers for a while.
struct Occlusion {
  int objectId = 0;
  std::optional<int> markerIndex;     ///< none = all markers of the object
  std::optional<rig::Camera> camera;  ///< none = both cameras
  double from = 0;                    ///< seconds, inclusive
  double to = 0;                      ///< seconds, exclusive
};

/// How the cameras see. The defaults are a perfect sensor.
struct BlobOptions {
  double markerDiameter = 30;     ///< mm; a blob needs 2 px of diameter to be paired at all
  double pixelNoise = 0;          ///< standard deviation of a blob's x and of its y, px
  double dropoutProbability = 0;  ///< per marker, camera and frame
  double splitProbability = 0;    ///< a blob comes as two overlapping halves of the same id
  double strayRate = 0;           ///< mean number of blobs without a marker, per camera and frame
  double reflectionProbability = 0;  ///< per marker and frame: a dimmer image of it nearby, same id
  std::vector<Occlusion> occlusions;
  /// Degrees: a camera further from a marker's facing does not see it. Markers without facing
  /// radiate all around.
  double emissionAngle = 180;
};

/// Images a scene with both cameras of a rig and gives the blobs that their hardware would report.
class BlobSource {
 public:
  BlobSource(const rig::StereoRig& rig, BlobOptions options);

  /// @param state    markers to image; their `inLeft` and `inRight` are filled
  /// @param idCount  stray blobs carry ids below it
  /// @param blobs    replaced: marker by marker, left before right, stray blobs last
  void observe(SceneState& state, int idCount, Random& random,
               std::vector<BlobRecord>& blobs) const;

 private:
  bool radiatesTo(const MarkerTruth& marker, rig::Camera camera) const;
  bool occluded(const MarkerTruth& marker, rig::Camera camera, double time) const;
  bool observeMarker(const MarkerTruth& marker, rig::Camera camera, double time, Random& random,
                     std::vector<BlobRecord>& blobs) const;
  void observeReflection(const MarkerTruth& marker, Random& random,
                         std::vector<BlobRecord>& blobs) const;
  void addStrays(rig::Camera camera, int idCount, Random& random,
                 std::vector<BlobRecord>& blobs) const;
  std::optional<rig::FisheyeCamera::Image> imageOf(const Eigen::Vector3d& p_R, double diameter,
                                                   rig::Camera camera) const;
  const rig::FisheyeCamera& lens(rig::Camera camera) const;

  algorithm::StereoCalibration calibration_;
  rig::FisheyeCamera left_;
  rig::FisheyeCamera right_;
  BlobOptions options_;
};

/// The record of a round blob: its weight is 110 units per pixel of area, its first moments are
/// rounded to whole numbers.
BlobRecord blobRecord(int id, rig::Camera camera, const rig::FisheyeCamera::Image& image);

}  // namespace sim
