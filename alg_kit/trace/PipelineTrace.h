// Follows every blob of a recording through the library's stages. The stages themselves run (the
// whole service, from the static twin); beside them the same step functions are called once more on
// marked copies, and what the marks say is compared with what the stages did.
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
enum class BlobFate {
  kNoWeight,          ///< its weight is 0: no centre
  kMerged,            ///< absorbed by an overlapping blob of its id and camera
  kNoPartner,         ///< the other camera saw no blob of its id
  kSurplus,           ///< the other camera saw fewer of its id, and larger ones went first
  kNotMutual,         ///< no blob of the other camera is its mutual nearest
  kEpipolar,          ///< with its partner refused by the epipolar test
  kTooNear,           ///< its point is not farther than 10 in front of the right camera
  kTooDeep,           ///< its point was removed by the depth pass
  kJumped,            ///< ... by the jump pass
  kFarFromReference,  ///< ... by the reference pass
  kTooMany,           ///< ... by the count pass
  kHeldByJump,        ///< its object's jump test held an earlier position instead
  kHeldByRatio,       ///< the two-point object's size ratio test held an earlier position
  kDelivered,         ///< its point is in the delivered block
};

constexpr int kBlobFates = static_cast<int>(BlobFate::kDelivered) + 1;

/// For people: "refused by the epipolar test".
const char* describe(BlobFate fate);

/// For programs: "epipolar".
const char* keyOf(BlobFate fate);

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
  /// @throws std::logic_error if the marked copies ended otherwise than the stages did: never,
  /// unless
  ///         this program and the library disagree
  const PacketTrace* feed(const session::Call& call);

  /// The block that the latest call delivered, if any.
  const std::optional<algorithm::ResultBlock>& block() const;

 private:
  struct Sinks;
  struct Before;

  void decodePacket();
  void traceBlobs(int camera, std::vector<std::vector<algorithm::Blob2DPoint>>& groups);
  std::vector<algorithm::BlobPairs> tracePairs(
      const std::vector<std::vector<algorithm::Blob2DPoint>> (&groups)[2]);
  algorithm::BlobPairs matchId(std::vector<algorithm::Blob2DPoint> left,
                               std::vector<algorithm::Blob2DPoint> right);
  void tracePoints(const std::vector<algorithm::BlobPairs>& pairsById, const Before& before);
  void traceObjects(const Before& before);
  algorithm::PointF proposedPosition(std::size_t object, const Before& before) const;
  void finish(TracedPoint& point, BlobFate fate, double value, double limit);
  void finish(int blob, BlobFate fate, double value = 0, double limit = 0);

  std::unique_ptr<Sinks> sinks_;
  algorithm::StereoService service_;
  PacketTrace packet_;
};

/// Why a blob of the packet ended where it did, in one line, with the value and the limit.
std::string reasonOf(const PacketTrace& packet, const TracedBlob& blob);

}  // namespace trace
