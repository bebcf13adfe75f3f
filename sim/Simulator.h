#pragma once

#include <alg_kit/rig/RigError.h>
#include <alg_kit/rig/StereoRig.h>
#include <sim/BlobSource.h>
#include <sim/InertialSource.h>
#include <sim/PacketWriter.h>
#include <sim/Scene.h>

#include <cstdint>
#include <optional>

namespace sim {

/// How a device packet is handed over; the values are the library's stream types.
enum class Framing {
  kPlain = algorithm::kPacket,           ///< the device packet alone
  kStamped = algorithm::kStampedPacket,  ///< a 4-byte stamp in microseconds, then the packet
};

/// What happens to packets on their way.
struct PacketFaults {
  double lossProbability = 0;        ///< the packet does not arrive
  double corruptProbability = 0;     ///< one byte of the packet is changed, the check byte is not
  double wrongCheckProbability = 0;  ///< the records are good, the check byte is not
};

struct SimulatorOptions {
  double frameRate = 90;  ///< Hz
  Framing framing = Framing::kPlain;
  BlobOptions blobs;
  PacketFaults faults;
  rig::RigError error;      ///< how the true cameras differ from the rig that is given
  rig::RigError drift;      ///< added to it bit by bit, all of it after `driftSeconds`
  double driftSeconds = 1;  ///< positive
  std::uint64_t seed = 1;
};

/// One frame: the truth, what the cameras reported, and the bytes for the library.
struct Frame {
  std::int64_t index = 0;
  std::uint32_t stamp = 0;  ///< microseconds since frame 0; wraps after 71 minutes
  SceneState truth;
  std::vector<BlobRecord> blobs;  ///< in packet order
  int blobsCut = 0;               ///< blobs that found no room in the device's packet
  bool lost = false;              ///< the packet did not arrive: `payload` is empty
  bool corrupted = false;         ///< a byte was changed
  bool wrongCheck = false;        ///< the check byte was made wrong
  Bytes payload;                  ///< for the stream type of the framing
};

/// Rig, scene and options in; device packets with truth out. Frame n depends on n and the seed
/// only: the same seed gives the same bytes, in any order of asking.
class Simulator {
 public:
  /// @throws std::invalid_argument for a frame rate that is not positive, a probability outside
  ///         0 to 1, a negative or non-finite number, or a marker without size
  Simulator(const rig::StereoRig& rig, Scene scene, SimulatorOptions options = {});

  int streamType() const { return static_cast<int>(options_.framing); }
  const Scene& scene() const { return scene_; }
  const rig::StereoRig& rig() const { return rig_; }  ///< as given: what a host believes
  /// The cameras as they are at that moment.
  algorithm::StereoCalibration trueCalibration(double seconds) const;
  double frameRate() const { return options_.frameRate; }  ///< Hz
  double timeOf(std::int64_t index) const;                 ///< seconds

  Frame frame(std::int64_t index) const;

  /// As above, into storage that is kept.
  void frame(std::int64_t index, Frame& frame) const;

  /// Payload of stream type 3 (device 0: object 0) or 4 (device 1: object 1) at frame `index`.
  Bytes inertialPayloadOf(int device, std::int64_t index) const;

 private:
  const BlobSource& sourceAt(double seconds, std::optional<BlobSource>& storage) const;

  rig::StereoRig rig_;
  Scene scene_;
  SimulatorOptions options_;
  BlobSource source_;
};

}  // namespace sim
