// Follows every blob of a recording through the library's stages: the whole service runs, from the
// static twin, and its steps tell what they drop. The trace knows no rule of the library; it keeps
// what it hears and names blobs by their place in the packet.
#pragma once

#include <alg_factory/service/StereoService.h>
#include <alg_kit/recording/Recording.h>
#include <alg_kit/trace/PacketDissection.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace trace {

/// Where a decoded blob ends. Every blob ends in exactly one of these.
using algorithm::BlobFate;

constexpr int kBlobFates = static_cast<int>(BlobFate::kDelivered) + 1;

struct TracedBlob {
  int camera = 0;  ///< 0 left, 1 right
  int offset = 0;  ///< of its record in the packet
  hid::RawBlob raw;
  double x = 0, y = 0;  ///< centre, pixels, distorted; after merging
  int diameter = 0;     ///< pixels
  BlobFate fate = BlobFate::kNoWeight;
  int other = -1;            ///< kMerged: into which blob; from kEpipolar on: its partner
  int nearest = -1;          ///< kNotMutual: its nearest in the other camera
  int nearestsNearest = -1;  ///< kNotMutual: that one's nearest in this camera
  int point = -1;            ///< of PacketTrace::points
  double value = 0;          ///< what decided ...
  double limit = 0;          ///< ... and the limit that it met
};

struct TracedPoint {
  int id = 0;
  int left = 0, right = 0;      ///< blobs
  double epipolarDistance = 0;  ///< pixels
  double rayGap = 0;            ///< shortest distance of the two rays, unit of the calibration
  double position[3] = {};      ///< as triangulated, right camera's frame
  double smoothed[3] = {};      ///< as published by the 3D stage, if it got so far
  BlobFate fate = BlobFate::kTooNear;
  double value = 0;  ///< as TracedBlob::value
  double limit = 0;
};

/// One device packet.
struct PacketTrace {
  int productType = 0;
  int blobIdCount = 0;
  int streamType = 0;
  hid::Frame frame{};
  int length = 0;  ///< of the packet in the frame, the zeros that follow a stamped one included
  hid::DecodeStatus status = hid::DecodeStatus::kNone;
  std::vector<PacketPiece> pieces;
  std::vector<TracedBlob> blobs;    ///< in packet order
  std::vector<TracedPoint> points;  ///< in the order of triangulation
  bool hadPreviousPoints = false;
};

/// Feed it the calls of a recording in order, from the first.
class PipelineTrace {
 public:
  PipelineTrace();
  ~PipelineTrace();

  /// Runs the call. Returns the packet if it was one that the library decoded, else null; valid
  /// until the next call.
  /// @throws std::logic_error if the dissection of a packet and the library's decoder disagree:
  ///         never, unless this program and the library do
  const PacketTrace* feed(const session::Call& call);

  /// The block that the latest call delivered, if any.
  const std::optional<algorithm::ResultBlock>& block() const;

 private:
  struct Sinks;
  class Listener;

  void beginPacket(const session::Call& call);
  void dissectPacket();
  void measureRays();

  std::unique_ptr<Sinks> sinks_;
  algorithm::StereoService service_;
  PacketTrace packet_;
  // Of the latest packet, kept for their storage: blobs by camera, as the decoder listed them and
  // as they entered the 3D stage, and what the decoder made of them.
  std::vector<int> decoded_[2], entered_[2];
  std::vector<hid::RawBlob> rawBlobs_[2];
};

}  // namespace trace
