#pragma once

#include <alg_factory/hid/StageObserver.h>
#include <alg_factory/steady3d/PointF.h>

namespace algorithm {

/// Rejects implausible jumps of one object by holding its last accepted position. Rejections are
/// counted over the object's whole life, accepted frames in between do not reset the count (kept:
/// it bounds how often an object can be held); once 100 are counted the next frame is accepted
/// without a test and the count restarts.
class JumpGuard {
 public:
  static constexpr int kMaxRejections = 100;

  explicit JumpGuard(float maxDistance) : maxDistance_(maxDistance) {}

  /// The object is absent: its next position is accepted without a test.
  void forget() { fresh_ = true; }

  bool fresh() const { return fresh_; }

  /// Returns `position`, or the last accepted position when `position` is farther than the limit
  /// from it. What is returned becomes the last accepted position.
  /// `onHeld` is called with (BlobFate, distance, limit) when `position` is rejected.
  template <typename OnHeld = NotHeard>
  PointF accept(const PointF& position, OnHeld onHeld = {}) {
    PointF accepted = position;
    if (fresh_) {
      fresh_ = false;
    } else if (rejectCount_ >= kMaxRejections) {
      rejectCount_ = 0;
    } else if (const float jump = distance(position, lastAccepted_); jump > maxDistance_) {
      accepted = lastAccepted_;
      ++rejectCount_;
      onHeld(BlobFate::kHeldByJump, jump, maxDistance_);
    }
    lastAccepted_ = accepted;
    return accepted;
  }

  const PointF& lastAccepted() const { return lastAccepted_; }
  int rejectCount() const { return rejectCount_; }

 private:
  float maxDistance_;
  bool fresh_ = true;
  int rejectCount_ = 0;
  PointF lastAccepted_;
};

}  // namespace algorithm
