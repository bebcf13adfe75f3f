#include <alg_factory/steady3d/JumpGuard.h>

#include <cmath>

#include <gtest/gtest.h>

namespace algorithm {
namespace {

constexpr float kLimit = 80.0f;

PointF at(float x) {
  return {x, 0.0f, 1000.0f};
}

/// Rejects `count` frames that alternate with accepted ones at 0.
void reject(JumpGuard& guard, int count) {
  for (int i = 0; i < count; ++i) {
    guard.accept(at(0.0f));
    guard.accept(at(500.0f));
  }
}

TEST(JumpGuard, AcceptsTheFirstPositionWhereverItIs) {
  JumpGuard guard(kLimit);
  EXPECT_TRUE(guard.fresh());
  EXPECT_EQ(guard.accept(at(5000.0f)).x, 5000.0f);
  EXPECT_FALSE(guard.fresh());
  EXPECT_EQ(guard.lastAccepted().x, 5000.0f);
  EXPECT_EQ(guard.rejectCount(), 0);
}

TEST(JumpGuard, AcceptsAJumpOfExactlyTheLimit) {
  JumpGuard guard(kLimit);
  guard.accept(at(0.0f));
  EXPECT_EQ(guard.accept(at(80.0f)).x, 80.0f);
  EXPECT_EQ(guard.accept(at(0.0f)).x, 0.0f);
  EXPECT_EQ(guard.rejectCount(), 0);
}

TEST(JumpGuard, HoldsTheLastAcceptedPositionOnALongerJump) {
  JumpGuard guard(kLimit);
  guard.accept({10.0f, 20.0f, 1000.0f});
  const PointF held = guard.accept({std::nextafter(90.0f, 100.0f), 20.0f, 1000.0f});
  EXPECT_EQ(held.x, 10.0f);
  EXPECT_EQ(held.y, 20.0f);
  EXPECT_EQ(held.z, 1000.0f);
  EXPECT_EQ(guard.rejectCount(), 1);
  EXPECT_EQ(guard.lastAccepted().x, 10.0f);
}

TEST(JumpGuard, MeasuresTheJumpInSpace) {
  JumpGuard guard(kLimit);
  guard.accept({0, 0, 0});
  // Each axis alone is within the limit: sqrt(3 * 50^2) = 86.6 is not.
  EXPECT_EQ(guard.accept({50, 50, 50}).x, 0.0f);
  // sqrt(3 * 46^2) = 79.7
  EXPECT_EQ(guard.accept({46, 46, 46}).x, 46.0f);
}

TEST(JumpGuard, MeasuresFromTheLastAcceptedPositionNotTheLastSeen) {
  JumpGuard guard(kLimit);
  guard.accept(at(0.0f));
  EXPECT_EQ(guard.accept(at(100.0f)).x, 0.0f);
  EXPECT_EQ(guard.accept(at(110.0f)).x, 0.0f);  // 10 from the last seen, 110 from the accepted
  EXPECT_EQ(guard.rejectCount(), 2);
}

TEST(JumpGuard, AcceptedFramesDoNotResetTheCount) {
  JumpGuard guard(kLimit);
  reject(guard, 40);
  EXPECT_EQ(guard.rejectCount(), 40);
  guard.accept(at(1.0f));
  EXPECT_EQ(guard.rejectCount(), 40);
}

TEST(JumpGuard, AcceptsOneFrameWithoutATestAfterAHundredRejections) {
  JumpGuard guard(kLimit);
  guard.accept(at(0.0f));
  for (int i = 1; i <= 100; ++i) {
    ASSERT_EQ(guard.accept(at(500.0f)).x, 0.0f) << "rejection " << i;
    ASSERT_EQ(guard.rejectCount(), i);
  }
  EXPECT_EQ(guard.accept(at(500.0f)).x, 500.0f);
  EXPECT_EQ(guard.rejectCount(), 0);
  // The test is back: the count starts again.
  EXPECT_EQ(guard.accept(at(0.0f)).x, 500.0f);
  EXPECT_EQ(guard.rejectCount(), 1);
}

TEST(JumpGuard, TheUntestedFrameIsTheNextOneEvenIfItIsNear) {
  JumpGuard guard(kLimit);
  reject(guard, 100);
  EXPECT_EQ(guard.accept(at(1.0f)).x, 1.0f);
  EXPECT_EQ(guard.rejectCount(), 0);
  EXPECT_EQ(guard.accept(at(500.0f)).x, 1.0f);
}

TEST(JumpGuard, AForgottenPositionIsNotComparedWith) {
  JumpGuard guard(kLimit);
  guard.accept(at(0.0f));
  guard.forget();
  EXPECT_TRUE(guard.fresh());
  EXPECT_EQ(guard.accept(at(3000.0f)).x, 3000.0f);
  EXPECT_FALSE(guard.fresh());
  EXPECT_EQ(guard.accept(at(0.0f)).x, 3000.0f);
}

TEST(JumpGuard, ForgettingKeepsTheCount) {
  JumpGuard guard(kLimit);
  reject(guard, 100);
  guard.forget();
  guard.accept(at(0.0f));  // accepted because it is fresh, which does not use up the count
  EXPECT_EQ(guard.rejectCount(), 100);
  EXPECT_EQ(guard.accept(at(900.0f)).x, 900.0f);
  EXPECT_EQ(guard.rejectCount(), 0);
}

TEST(JumpGuard, EveryGuardHasItsOwnLimit) {
  JumpGuard guard(150.0f);
  guard.accept(at(0.0f));
  EXPECT_EQ(guard.accept(at(150.0f)).x, 150.0f);
  EXPECT_EQ(guard.accept(at(300.5f)).x, 150.0f);
}

}  // namespace
}  // namespace algorithm
