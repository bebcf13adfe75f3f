#pragma once

#include <cstdint>

#include <alg_factory/hid/StageObserver.h>
#include <alg_factory/steady3d/JumpGuard.h>
#include <alg_factory/steady3d/PointF.h>

namespace algorithm {

/// Which point of the pair, ordered by x.
enum class PairSide { kFirst, kSecond };

/// The object with two marker points. It is reported at their midpoint; while only one is visible,
/// the midpoint is reconstructed from the pair seen last, and when the other comes back the report
/// slides to the true midpoint over 90 frames.
class TwoPointObject {
 public:
  static constexpr int kRampFrames = 90;
  static constexpr float kMaxJump = 150.0f;

  /// The object is absent.
  void forget();

  /// One point visible. @return the position to report.
  /// @param point     where it is now
  /// @param sideHint  1: it is the first of the pair, 2: the second, else decided by distance
  /// @param onHeld    called with (BlobFate, value, limit) when the position is rejected
  template <typename OnHeld = NotHeard>
  PointF seeOne(const PointF& point, std::int32_t sideHint, OnHeld onHeld = {}) {
    return guard_.accept(reconstructFrom(point, sideHint), onHeld);
  }

  /// Both points visible, in the order of the marker points.
  /// @param a               position of the first marker point
  /// @param b               position of the second
  /// @param diameterA       of the first in the images, pixels
  /// @param diameterB       of the second
  /// @param sideHint        1, 2: the report slides from that side of the pair, else from the last
  /// @param maxRatioChange  largest factor between the diameter ratio and its reference
  /// @param onHeld          as `seeOne`
  /// @return the position to report
  template <typename OnHeld = NotHeard>
  PointF seeBoth(const PointF& a, const PointF& b, std::int32_t diameterA, std::int32_t diameterB,
                 std::int32_t sideHint, float maxRatioChange, OnHeld onHeld = {}) {
    PointF position = slideToMidpoint(a, b, sideHint);
    if (!guard_.fresh() && !ratioHolds(diameterA, diameterB, maxRatioChange, onHeld)) {
      position = guard_.lastAccepted();
    }
    return guard_.accept(position, onHeld);
  }

  bool fresh() const { return guard_.fresh(); }
  int rampCounter() const { return rampCounter_; }
  float referenceRatio() const { return referenceRatio_; }
  PairSide side() const { return side_; }
  const JumpGuard& guard() const { return guard_; }

 private:
  /// The points of a pair, the one with the smaller x first.
  struct Pair {
    PointF first, second;
    const PointF& at(PairSide side) const { return side == PairSide::kFirst ? first : second; }
  };

  void decideSide(const PointF& point, std::int32_t sideHint);
  PointF reconstruct(const PointF& visible) const;
  PointF reconstructFrom(const PointF& visible, std::int32_t sideHint);
  PointF slideToMidpoint(const PointF& a, const PointF& b, std::int32_t sideHint);

  template <typename OnHeld>
  bool ratioHolds(std::int32_t diameterA, std::int32_t diameterB, float maxRatioChange,
                  OnHeld onHeld) {
    const float ratio = static_cast<float>(diameterA) / static_cast<float>(diameterB);
    const float change = ratio / referenceRatio_;
    const bool fails = change > maxRatioChange || change < 1.0f / maxRatioChange;
    if (!fails) return true;
    // Only a failed test moves the reference (kept): a slow drift within the factor is not
    // followed.
    referenceRatio_ = ratio;
    onHeld(BlobFate::kHeldByRatio, change, maxRatioChange);
    return false;
  }

  JumpGuard guard_{kMaxJump};
  float referenceRatio_ = 0;
  std::int32_t rampCounter_ = 10000;
  Pair remembered_;
  PairSide side_ = PairSide::kSecond;
  bool sawBoth_ = false;  ///< in the previous frame
};

/// Unsigned horizontal bearing of `position` from the origin, degrees: atan(|x| / |z|).
float bearingOf(const PointF& position);

}  // namespace algorithm
