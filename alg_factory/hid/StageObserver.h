#pragma once

#include <cstddef>
#include <vector>

#include <alg_factory/hid/RawBlob.h>

namespace algorithm {

struct Blob2DPoint;
struct StereoPoint;

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

/// Hears what every step of the stages drops, and why. The steps take their observer as a template
/// parameter. This one hears nothing and costs nothing; an observer of one's own derives from it
/// and hides the operations that it wants to hear. `value` is what decided, `limit` what it met.
///
/// Cameras are 0 (left) and 1 (right). A blob is named by its place among the camera's blobs at the
/// entry of the stage, a point by the place of its pair among the frame's pairs. The 3D stage puts
/// blobs that do not come as the 2D stage lists them, by id and size, in that order first.
struct NoObserver {
  /// The records of both cameras, before any stage takes them.
  void decoded(const std::vector<hid::RawBlob>& /*left*/,
               const std::vector<hid::RawBlob>& /*right*/) {}

  // 2D stage
  void blobDropped(int /*camera*/, std::size_t /*blob*/, BlobFate) {}
  void blobMerged(int /*camera*/, std::size_t /*blob*/, const Blob2DPoint&, std::size_t /*into*/,
                  double /*value*/, double /*limit*/) {}
  /// Once for every blob that goes on, in the order of the stage's output.
  void blobKept(int /*camera*/, std::size_t /*blob*/, const Blob2DPoint&) {}

  // 3D stage, matching
  void unmatched(int /*camera*/, std::size_t /*blob*/, BlobFate, double /*value*/,
                 double /*limit*/) {}
  /// True: `notMutual` is called, for which the nearest of every blob is sought.
  static constexpr bool kWantsNearest = false;
  void notMutual(int /*camera*/, std::size_t /*blob*/, std::size_t /*nearest*/,
                 std::size_t /*nearestsNearest*/) {}
  void refused(std::size_t /*left*/, std::size_t /*right*/, double /*value*/, double /*limit*/) {}
  /// Once for every pair, in the order of the pairs.
  void paired(std::size_t /*left*/, std::size_t /*right*/, double /*epipolarDistance*/) {}

  // 3D stage, points
  void triangulated(std::size_t /*point*/, double /*x*/, double /*y*/, double /*z*/) {}
  void pointDropped(std::size_t /*point*/, BlobFate, double /*value*/, double /*limit*/) {}
  void published(std::size_t /*point*/, const StereoPoint&) {}

  // Stabilisation stage
  void held(std::size_t /*object*/, BlobFate, double /*value*/, double /*limit*/) {}
};

/// For the parts of a step that are called back with what they drop: hears nothing.
struct NotHeard {
  template <typename... Reported>
  void operator()(const Reported&...) const {}
};

}  // namespace algorithm
