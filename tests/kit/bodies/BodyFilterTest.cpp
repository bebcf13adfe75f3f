#include <alg_kit/bodies/BodyFilter.h>

#include <tests/kit/bodies/SeenBody.h>

#include <gtest/gtest.h>
#include <tests/support/AllocationCounter.h>
#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>

namespace {

using bodies::Body;
using bodies::BodyFilter;
using bodies::BodyFrame;
using bodies::MarkerEnd;
using bodies::RigidMotion;
using bodies::TrackedPose;
using Eigen::Vector3d;
using estimate::Source;
using testing_support::builtInCameras;
using testing_support::firstMarkers;
using testing_support::handAt;
using testing_support::hide;
using testing_support::kNoise;
using testing_support::kPeriod;
using testing_support::seen;
using testing_support::sixMarkers;

/// Feeds frames of the hand's motion; `change` may alter what is seen.
class Following {
 public:
  using Change = std::function<void(int frame, BodyFrame& seen)>;
  using Look = std::function<void(int frame, const RigidMotion& truth, const TrackedPose& now)>;

  explicit Following(const Body& believed) : filter(believed) {}

  void run(const Body& truth, int frames, const Change& change, const Look& look) {
    for (int i = 0; i < frames; ++i) {
      const RigidMotion motion = handAt(i * kPeriod);
      BodyFrame frame = seen(truth, motion, kNoise, random_);
      frame.elapsed = kPeriod;
      if (change) change(i, frame);
      filter.feed(frame, builtInCameras(), kNoise);
      if (look) look(i, motion, filter.now());
    }
  }

  BodyFilter filter;

 private:
  sim::Random random_{1};
};

/// Squared error in the stated covariance; its mean is 6.
double distance2(const TrackedPose& pose, const RigidMotion& truth) {
  const auto error = bodies::differenceOf(pose.pose.motion, truth);
  return error.dot(pose.pose.covariance.inverse() * error);
}

double positionError(const TrackedPose& pose, const RigidMotion& truth) {
  return (pose.pose.motion.position - truth.position).norm();
}

TEST(BodyFilter, ErrorsAreAsLargeAsTheCovarianceSaysAndFarBelowOneFrames) {
  constexpr int kFrames = 2000, kWarmUp = 90;
  double sum = 0, tracked = 0, single = 0;
  Following(sixMarkers())
      .run(sixMarkers(), kFrames, {}, [&](int i, const RigidMotion& truth, const TrackedPose& now) {
        ASSERT_EQ(now.source, Source::kMeasured);
        ASSERT_EQ(now.pose.markers, 6);
        if (i < kWarmUp) return;
        sum += distance2(now, truth) / 6;
        tracked += std::pow(positionError(now, truth), 2);
      });
  sim::Random random(1);
  for (int i = 0; i < kFrames; ++i) {
    const RigidMotion truth = handAt(i * kPeriod);
    const auto pose = bodies::poseOf(sixMarkers(), seen(sixMarkers(), truth, kNoise, random),
                                     builtInCameras(), kNoise);
    ASSERT_TRUE(pose);
    if (i >= kWarmUp) single += (pose->motion.position - truth.position).squaredNorm();
  }
  EXPECT_GT(sum / (kFrames - kWarmUp), 0.7);
  EXPECT_LT(sum / (kFrames - kWarmUp), 1.4);
  EXPECT_LT(tracked, single / 3);
}

TEST(BodyFilter, OriginFarFromTheMarkersIsAnsweredForWithItsOwnCovariance) {
  Body far = sixMarkers();
  for (auto& marker : far.markers) marker.position += Vector3d(0, 300, 0);
  double sum = 0;
  int count = 0;
  Following(far).run(far, 1000, {}, [&](int i, const RigidMotion& truth, const TrackedPose& now) {
    if (i < 90) return;
    const Vector3d error = now.pose.motion.position - truth.position;
    const Eigen::Matrix3d covariance = now.pose.covariance.topLeftCorner<3, 3>();
    sum += error.dot(covariance.inverse() * error) / 3;
    ++count;
    // The origin swings about the markers: its velocity has the turn in it.
    const Vector3d speed =
        (handAt((i + 0.5) * kPeriod).position - handAt((i - 0.5) * kPeriod).position) / kPeriod;
    EXPECT_LT((now.velocity - speed).norm(),
              5 * std::sqrt(now.rateCovariance.topLeftCorner<3, 3>().trace()) + 20);
  });
  EXPECT_GT(sum / count, 0.6);
  EXPECT_LT(sum / count, 1.6);
}

TEST(BodyFilter, PredictsAsWellAsItSays) {
  Following following(sixMarkers());
  double sum = 0;
  int count = 0;
  following.run(sixMarkers(), 1500, {}, [&](int i, const RigidMotion&, const TrackedPose&) {
    if (i < 90) return;
    const TrackedPose ahead = following.filter.ahead(0.033);
    ASSERT_EQ(ahead.source, Source::kPredicted);
    sum += distance2(ahead, handAt(i * kPeriod + 0.033)) / 6;
    ++count;
  });
  EXPECT_GT(sum / count, 0.4);
  EXPECT_LT(sum / count, 1.4);
  EXPECT_EQ(following.filter.ahead(0.11).source, Source::kNone);
  EXPECT_EQ(following.filter.ahead(-0.01).source, Source::kNone);
}

TEST(BodyFilter, OneMarkerSeenByOneCameraHelps) {
  const auto hideMost = [](int first) {
    return [first](int i, BodyFrame& frame) {
      if (i < 200) return;
      for (int id = first; id < 6; ++id) hide(frame, id);
      for (int id = 0; id < first; ++id)
        frame.markers[static_cast<std::size_t>(id)].pixel[estimate::kLeft].reset();
    };
  };
  double errors[2] = {};
  for (const int markers : {0, 1}) {
    Following(sixMarkers())
        .run(sixMarkers(), 232, hideMost(markers),
             [&](int i, const RigidMotion& truth, const TrackedPose& now) {
               if (i < 200) return;
               EXPECT_EQ(now.source, markers > 0 ? Source::kMeasured : Source::kBridged);
               EXPECT_EQ(now.pose.markers, markers);
               EXPECT_LT(distance2(now, truth), 40) << i;
               if (markers > 0) {
                 EXPECT_EQ(now.pose.ends[0], MarkerEnd::kOneCamera);
               }
               errors[markers] += positionError(now, truth);
             });
  }
  EXPECT_LT(errors[1], 0.7 * errors[0]);
}

// What so few tell of a turn only by the expected position is not believed.
TEST(BodyFilter, OneOrTwoMarkersPromiseNoMoreThanTheyTell) {
  constexpr int kFirst = 90, kEvery = 135, kStretch = 72;
  for (const int left : {1, 2}) {
    double sum = 0;
    int count = 0;
    const auto few = [](int i) { return i >= kFirst && (i - kFirst) % kEvery < kStretch; };
    Following(sixMarkers())
        .run(
            sixMarkers(), kFirst + 20 * kEvery,
            [&](int i, BodyFrame& frame) {
              if (!few(i)) return;
              for (int k = left; k < 6; ++k) hide(frame, (i / kEvery + k) % 6);
            },
            [&](int i, const RigidMotion& truth, const TrackedPose& now) {
              if (!few(i)) return;
              sum += distance2(now, truth) / 6;
              ++count;
            });
    EXPECT_EQ(count, 20 * kStretch);
    EXPECT_GT(sum / count, 0.7) << left;
    EXPECT_LT(sum / count, 1.4) << left;
  }
}

// Half the markers hidden in turn, a second each: what is answered stays within its deviations,
// and does not jump by more than they allow.
TEST(BodyFilter, HidingThreeOfSixInTurnMakesNoJump) {
  std::optional<TrackedPose> last;
  std::optional<RigidMotion> lastTruth;
  double sum = 0;
  Following(sixMarkers())
      .run(
          sixMarkers(), 1800,
          [](int i, BodyFrame& frame) {
            for (int id = 0; id < 3; ++id) hide(frame, (i / 90 + id) % 6);
          },
          [&](int i, const RigidMotion& truth, const TrackedPose& now) {
            if (i < 90) return;
            EXPECT_EQ(now.pose.markers, 3);
            sum += distance2(now, truth) / 6;
            if (last) {
              const Eigen::Matrix<double, 6, 1> jump =
                  bodies::differenceOf(now.pose.motion, truth) -
                  bodies::differenceOf(last->pose.motion, *lastTruth);
              for (int n = 0; n < 6; ++n)
                EXPECT_LT(std::abs(jump[n]),
                          3 * std::sqrt(last->pose.covariance(n, n) + now.pose.covariance(n, n)))
                    << i;
            }
            last = now;
            lastTruth = truth;
          });
  EXPECT_LT(sum / 1710, 1.4);
}

TEST(BodyFilter, DisplacedMarkerIsLeftOutAndNamed) {
  for (std::size_t wrong = 0; wrong < 6; ++wrong) {
    Body bent = sixMarkers();
    bent.markers[wrong].position.y() += 20;
    Following(sixMarkers())
        .run(bent, 200, {}, [&](int, const RigidMotion& truth, const TrackedPose& now) {
          ASSERT_EQ(now.pose.markers, 5);
          EXPECT_EQ(now.pose.ends[wrong], MarkerEnd::kOffShape);
          EXPECT_LT(distance2(now, truth), 45);
        });
  }
}

TEST(BodyFilter, MarkerThatIsWrongForAFrameIsLeftOutAndComesBack) {
  Following(sixMarkers())
      .run(
          sixMarkers(), 300,
          [](int i, BodyFrame& frame) {
            if (i % 20 == 10) *frame.markers[2].pixel[estimate::kLeft] += Eigen::Vector2d(3, 0);
          },
          [](int i, const RigidMotion& truth, const TrackedPose& now) {
            EXPECT_EQ(now.pose.ends[2], i % 20 == 10 ? MarkerEnd::kOffShape : MarkerEnd::kUsed)
                << i;
            if (i % 20 == 10) {
              EXPECT_GT(now.misfits[2], bodies::kMarkerMost);
            }
            EXPECT_LT(distance2(now, truth), 45);
          });
}

TEST(BodyFilter, SwappedMarkersAreLeftOut) {
  Body swapped = sixMarkers();
  std::swap(swapped.markers[1].position, swapped.markers[4].position);
  Following(sixMarkers())
      .run(swapped, 100, {}, [&](int, const RigidMotion& truth, const TrackedPose& now) {
        ASSERT_EQ(now.pose.markers, 4);
        EXPECT_EQ(now.pose.ends[1], MarkerEnd::kOffShape);
        EXPECT_EQ(now.pose.ends[4], MarkerEnd::kOffShape);
        EXPECT_LT(distance2(now, truth), 45);
      });
}

TEST(BodyFilter, GapIsBridgedWithAGrowingCovarianceAndThenForgotten) {
  double last = 0;
  Following(sixMarkers())
      .run(
          sixMarkers(), 350,
          [](int i, BodyFrame& frame) {
            if (i >= 100 && i < 300)
              for (int id = 0; id < 6; ++id) hide(frame, id);
          },
          [&](int i, const RigidMotion& truth, const TrackedPose& now) {
            if (i >= 100 && i < 189) {
              EXPECT_EQ(now.source, Source::kBridged);
              EXPECT_NEAR(now.age, (i - 99) * kPeriod, 1e-9);
              EXPECT_GT(now.pose.covariance.trace(), last);
              EXPECT_LT(distance2(now, truth), 40) << i;
            }
            if (i > 191 && i < 300) {
              EXPECT_EQ(now.source, Source::kNone);
            }
            if (i >= 300) {
              EXPECT_EQ(now.source, Source::kMeasured);
              EXPECT_LT(distance2(now, truth), 45);
            }
            last = now.pose.covariance.trace();
          });
}

// Linearised about a turn that is long another, one marker would seem to tell all turns.
TEST(BodyFilter, OneMarkerTellsNothingOnceNoneHadThePoseForHalfASecond) {
  Following(sixMarkers())
      .run(
          sixMarkers(), 400,
          [](int i, BodyFrame& frame) {
            if (i >= 100 && i < 300)
              for (int id = 1; id < 6; ++id) hide(frame, id);
          },
          [](int i, const RigidMotion& truth, const TrackedPose& now) {
            if (i >= 100 && i < 132) {
              EXPECT_EQ(now.source, Source::kMeasured) << i;
            }
            if (i > 146 && i < 222) {
              EXPECT_EQ(now.source, Source::kBridged) << i;
            }
            if (i > 236 && i < 300) {
              EXPECT_EQ(now.source, Source::kNone) << i;
            }
            if (i >= 300) {
              EXPECT_EQ(now.source, Source::kMeasured) << i;
            }
            if (now.source != Source::kNone) {
              EXPECT_LT(distance2(now, truth), 45) << i;
            }
          });
}

TEST(BodyFilter, BodyInSightIsFoundThoughItWasExpectedBehindTheCameras) {
  BodyFilter filter(sixMarkers());
  sim::Random random(6);
  RigidMotion place = handAt(0);
  for (int i = 0; i < 56; ++i) {
    if (i < 31) place.position.z() = 1500 - 3000 * i * kPeriod;  // 3 m/s, and it stops unseen
    BodyFrame frame = seen(sixMarkers(), place, kNoise, random);
    frame.elapsed = kPeriod;
    if (i > 30 && i < 55) frame.markers = {};
    filter.feed(frame, builtInCameras(), kNoise);
    if (i == 54) {
      ASSERT_LT(filter.now().pose.motion.position.z(), 0);
    }
  }
  EXPECT_EQ(filter.now().source, Source::kMeasured);
  EXPECT_LT(positionError(filter.now(), place), 5);
}

TEST(BodyFilter, BodyThatIsElsewhereAfterAGapIsFollowedThere) {
  BodyFilter filter(sixMarkers());
  sim::Random random(4);
  RigidMotion place = handAt(0);
  for (int i = 0; i < 120; ++i) {
    if (i == 60) place.position += Vector3d(150, -100, 200);
    BodyFrame frame = seen(sixMarkers(), place, kNoise, random);
    frame.elapsed = kPeriod;
    if (i >= 50 && i < 60) frame.markers = {};
    filter.feed(frame, builtInCameras(), kNoise);
  }
  EXPECT_EQ(filter.now().source, Source::kMeasured);
  EXPECT_LT(positionError(filter.now(), place), 5);
}

TEST(BodyFilter, RestIsSteadierThanMotion) {
  BodyFilter filter(sixMarkers());
  sim::Random random(5);
  const RigidMotion place = handAt(1);
  double rest = 0;
  for (int i = 0; i < 900; ++i) {
    BodyFrame frame = seen(sixMarkers(), place, kNoise, random);
    frame.elapsed = kPeriod;
    filter.feed(frame, builtInCameras(), kNoise);
    if (i >= 450) rest += std::pow(positionError(filter.now(), place), 2) / 450;
  }
  double moving = 0;
  Following(sixMarkers())
      .run(sixMarkers(), 900, {}, [&](int i, const RigidMotion& truth, const TrackedPose& now) {
        if (i >= 450) moving += std::pow(positionError(now, truth), 2) / 450;
      });
  EXPECT_LT(rest, moving / 2);
}

TEST(BodyFilter, FrameAllocatesNothing) {
  Following following(sixMarkers());
  following.run(sixMarkers(), 100, {}, {});
  sim::Random random(6);
  BodyFrame frame = seen(sixMarkers(), handAt(100 * kPeriod), kNoise, random);
  frame.elapsed = kPeriod;
  BodyFrame wrong = frame;
  wrong.markers[3].pixel[0]->x() += 9;
  const long before = testing_support::allocations();
  following.filter.feed(frame, builtInCameras(), kNoise);
  following.filter.feed(wrong, builtInCameras(), kNoise);
  EXPECT_GT(following.filter.ahead(0.02).age, 0);
  EXPECT_EQ(testing_support::allocations(), before);
}

}  // namespace
