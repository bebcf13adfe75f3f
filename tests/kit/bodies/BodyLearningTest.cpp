#include <alg_kit/bodies/BodyLearning.h>

#include <tests/kit/bodies/SeenBody.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <stdexcept>

namespace {

using bodies::Body;
using bodies::FramePoints;
using bodies::LearnedBody;
using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::drawMotion;
using testing_support::firstMarkers;
using testing_support::hide;
using testing_support::kNoise;
using testing_support::pointsIn;
using testing_support::seen;
using testing_support::sixMarkers;

/// @param change  what is done to the body before, and to the frame after it is seen
std::vector<FramePoints> frames(
    int count, std::uint64_t seed, const std::function<void(int, Body&)>& bend = [](int, Body&) {},
    const std::function<void(int, bodies::BodyFrame&)>& hideSome = [](int, bodies::BodyFrame&) {}) {
  sim::Random random(seed);
  std::vector<FramePoints> result;
  for (int i = 0; i < count; ++i) {
    Body body = sixMarkers();
    bend(i, body);
    bodies::BodyFrame frame = seen(body, drawMotion(random), kNoise, random);
    hideSome(i, frame);
    result.push_back(pointsIn(frame, kNoise));
  }
  return result;
}

const std::vector<int> kAll = {0, 1, 2, 3, 4, 5};

void expectTrueDistances(const LearnedBody& learned) {
  double squares = 0;
  for (const bodies::MarkerDistance& d : learned.distances) {
    const double truth =
        (sixMarkers().markerOf(d.first)->position - sixMarkers().markerOf(d.second)->position)
            .norm();
    EXPECT_LT(std::abs(d.distance - truth), 4 * d.deviation) << d.first << " " << d.second;
    EXPECT_LT(d.deviation, 0.5);
    squares += std::pow((d.distance - truth) / d.deviation, 2);
  }
  const double mean = squares / static_cast<double>(learned.distances.size());
  EXPECT_GT(mean, 0.2);  // the deviations are not just large
  EXPECT_LT(mean, 2.5);
}

TEST(BodyLearning, FindsTheDistancesWithinTheirDeviations) {
  const LearnedBody learned = bodies::learn(frames(300, 1), kAll, "tool");
  ASSERT_EQ(learned.body.markers.size(), 6u);
  EXPECT_EQ(learned.distances.size(), 15u);
  EXPECT_EQ(learned.frames, 300);
  EXPECT_NEAR(learned.misfit, 1, 0.1);
  EXPECT_THAT(learned.loose, IsEmpty());
  EXPECT_THAT(learned.notLinked, IsEmpty());
  EXPECT_THAT(learned.neverTogether, IsEmpty());
  expectTrueDistances(learned);
}

TEST(BodyLearning, MirrorImageIsExcluded) {
  const LearnedBody learned = bodies::learn(frames(100, 2), kAll, "tool");
  const auto volume = [](const Body& body) {
    const auto side = [&](int id) {
      return Eigen::Vector3d(body.markerOf(id)->position - body.markerOf(0)->position);
    };
    return side(1).cross(side(2)).dot(side(3));
  };
  EXPECT_NEAR(volume(learned.body) / volume(sixMarkers()), 1, 0.02);
}

TEST(BodyLearning, FrameOfItsOwnStandsInTheMarkers) {
  const LearnedBody learned = bodies::learn(frames(50, 3), kAll, "tool");
  Eigen::Vector3d mean = Eigen::Vector3d::Zero();
  for (const bodies::BodyMarker& marker : learned.body.markers) mean += marker.position / 6;
  EXPECT_LT(mean.norm(), 1e-9);
  EXPECT_GT(learned.body.markers[0].position.x(), 0);
  EXPECT_NEAR(learned.body.markers[0].position.y(), 0, 1e-9);
  EXPECT_NEAR(learned.body.markers[0].position.z(), 0, 1e-9);
  EXPECT_GT(learned.body.markers[1].position.y(), 0);
  EXPECT_NEAR(learned.body.markers[1].position.z(), 0, 1e-9);
}

TEST(BodyLearning, ThreeOfSixAtATimeAreEnough) {
  const auto hideThree = [](int i, bodies::BodyFrame& frame) {
    for (int k = 0; k < 3; ++k) hide(frame, (i + k) % 6);
  };
  expectTrueDistances(bodies::learn(frames(
                                        600, 4, [](int, Body&) {}, hideThree),
                                    kAll, "tool"));
}

TEST(BodyLearning, MarkerThatDoesNotHoldStillIsNamedAndLeftOut) {
  const auto swing = [](int i, Body& body) {
    body.markers[4].position.x() += 20 * std::sin(0.1 * i);
  };
  const LearnedBody learned = bodies::learn(frames(200, 5, swing), kAll, "tool");
  EXPECT_THAT(learned.loose, ElementsAre(4));
  EXPECT_EQ(learned.body.markers.size(), 5u);
  expectTrueDistances(learned);
}

TEST(BodyLearning, FewWrongPointsDoNotMoveTheShape) {
  const auto jump = [](int i, Body& body) {
    if (i % 20 == 0) body.markers[static_cast<std::size_t>(i / 20 % 6)].position.z() += 15;
  };
  const LearnedBody learned = bodies::learn(frames(300, 6, jump), kAll, "tool");
  EXPECT_THAT(learned.loose, IsEmpty());
  expectTrueDistances(learned);
}

TEST(BodyLearning, MarkersThatWereNeverTogetherAreNamed) {
  // 0 and 5 in turn: still linked by the others.
  const auto inTurn = [](int i, bodies::BodyFrame& frame) { hide(frame, i % 2 == 0 ? 0 : 5); };
  const LearnedBody linked = bodies::learn(frames(
                                               200, 7, [](int, Body&) {}, inTurn),
                                           kAll, "tool");
  EXPECT_THAT(linked.neverTogether, ElementsAre(std::pair(0, 5)));
  EXPECT_EQ(linked.body.markers.size(), 6u);
  expectTrueDistances(linked);

  // 5 with 4 alone: nothing says where it is.
  const auto apart = [](int i, bodies::BodyFrame& frame) {
    if (i % 2 == 0)
      hide(frame, 5);
    else
      for (int id = 0; id < 4; ++id) hide(frame, id);
  };
  const LearnedBody cut = bodies::learn(frames(
                                            200, 8, [](int, Body&) {}, apart),
                                        kAll, "tool");
  EXPECT_THAT(cut.notLinked, ElementsAre(5));
  EXPECT_EQ(cut.body.markers.size(), 5u);
}

TEST(BodyLearning, TwoMarkersAndNoFramesAreRefused) {
  const auto two = [](int, Body& body) { body = firstMarkers(2); };
  EXPECT_THROW(bodies::learn(frames(20, 9, two), kAll, "tool"), std::runtime_error);
  EXPECT_THROW(bodies::learn({}, kAll, "tool"), std::runtime_error);
}

}  // namespace
