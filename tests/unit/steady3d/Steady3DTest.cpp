#include <alg_factory/steady3d/Steady3D.h>

#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/support/RecordingLog.h>

namespace algorithm {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

StereoPoint point(std::int32_t id, double x, double y = 0, double z = 1000,
                  std::int32_t diameter = 8) {
  StereoPoint p;
  p.x = x;
  p.y = y;
  p.z = z;
  p.diameter = diameter;
  p.id = id;
  return p;
}

class Steady3DTest : public testing::Test {
 protected:
  void configure(std::int32_t productType) {
    stage_.setLogger(&log_);
    ASSERT_TRUE(stage_.init(productType));
    ASSERT_TRUE(stage_.configure(&input_, &alignment_));
  }

  void frame(std::vector<StereoPoint> points) {
    input_ = std::move(points);
    ASSERT_TRUE(stage_.process());
  }

  const TrackedPoint& record(std::size_t k) const { return stage_.table()[k]; }

  std::vector<std::int32_t> ids() const {
    std::vector<std::int32_t> result;
    for (const TrackedPoint& r : stage_.table()) result.push_back(r.id);
    return result;
  }

  testing_support::RecordingLog log_;
  std::vector<StereoPoint> input_;
  HeadingAlignment alignment_;
  Steady3D stage_;
};

// ------------------------------------------------------------------------------ configuration

TEST_F(Steady3DTest, StartsWithoutObjectsAndWithoutFiltering) {
  EXPECT_EQ(stage_.productType(), 0);
  EXPECT_EQ(stage_.filterMode(), -1);
  EXPECT_EQ(stage_.objectCount(), 0);
  EXPECT_THAT(stage_.pointsPerObject(), IsEmpty());
  EXPECT_THAT(ids(), Each(-1));
}

TEST_F(Steady3DTest, ProductType0HasThreeObjectsOfOnePoint) {
  configure(0);
  EXPECT_EQ(stage_.objectCount(), 3);
  EXPECT_THAT(stage_.pointsPerObject(), ElementsAre(1, 1, 1));
  EXPECT_EQ(stage_.markers().position.size(), 3u);
  EXPECT_THAT(stage_.markers().index, ElementsAre(0, 1, 2));
  EXPECT_EQ(stage_.sightings().lastSeen.size(), 3u);
  EXPECT_THAT(stage_.sightings().missCount, ElementsAre(0, 0, 0));
  EXPECT_EQ(stage_.typeParam1(), 0.0f);
  EXPECT_EQ(stage_.typeParam2(), 0.0f);
}

TEST_F(Steady3DTest, ProductType1HasThreeObjectsAndFourPoints) {
  configure(1);
  EXPECT_EQ(stage_.objectCount(), 3);
  EXPECT_THAT(stage_.pointsPerObject(), ElementsAre(1, 1, 2));
  EXPECT_EQ(stage_.markers().position.size(), 4u);
  EXPECT_THAT(stage_.markers().index, ElementsAre(0, 1, 2, 3));
  EXPECT_EQ(stage_.sightings().lastSeen.size(), 3u);
  EXPECT_EQ(stage_.typeParam1(), 1.5f);
  EXPECT_EQ(stage_.typeParam2(), 1.2f);
}

TEST_F(Steady3DTest, ProductType2HasSixObjectsOfOnePoint) {
  configure(2);
  EXPECT_EQ(stage_.objectCount(), 6);
  EXPECT_THAT(stage_.pointsPerObject(), ElementsAre(1, 1, 1, 1, 1, 1));
  EXPECT_THAT(stage_.markers().index, ElementsAre(0, 1, 2, 3, 4, 5));
  EXPECT_EQ(stage_.sightings().missCount.size(), 6u);
}

TEST_F(Steady3DTest, AnUnknownProductTypeIsLoggedAndKeepsTheObjects) {
  configure(1);
  EXPECT_TRUE(stage_.init(3));
  EXPECT_TRUE(stage_.init(-1));
  EXPECT_EQ(stage_.objectCount(), 3);
  EXPECT_THAT(stage_.pointsPerObject(), ElementsAre(1, 1, 2));
  EXPECT_EQ(stage_.typeParam2(), 1.2f);
  EXPECT_THAT(log_.lines, ElementsAre(Pair(4, "alg: unknown product type!"),
                                      Pair(4, "alg: unknown product type!")));
}

TEST_F(Steady3DTest, KnownProductTypesLogNothing) {
  for (const std::int32_t type : {0, 1, 2}) configure(type);
  EXPECT_THAT(log_.lines, IsEmpty());
}

TEST_F(Steady3DTest, WithoutAFilterModeNoFilterIsBuilt) {
  configure(0);
  for (const KalmanFilter* filter : {&stage_.positionFilterA(), &stage_.positionFilterB()}) {
    EXPECT_EQ(filter->stateDim(), 0);
    EXPECT_EQ(filter->transition().size(), 0);
    EXPECT_EQ(filter->state().size(), 0);
    EXPECT_FALSE(filter->initialized());
  }
}

TEST_F(Steady3DTest, PreparingBuildsBothFiltersOfTheMotionModel) {
  stage_.setFilterMode(0);
  configure(0);
  Eigen::MatrixXd transition(6, 6), observation(3, 6);
  const double dt = 1.0 / 90;
  transition << 1, 0, 0, dt, 0, 0,  //
      0, 1, 0, 0, dt, 0,            //
      0, 0, 1, 0, 0, dt,            //
      0, 0, 0, 1, 0, 0,             //
      0, 0, 0, 0, 1, 0,             //
      0, 0, 0, 0, 0, 1;
  observation << 1, 0, 0, 0, 0, 0,  //
      0, 1, 0, 0, 0, 0,             //
      0, 0, 1, 0, 0, 0;
  for (const KalmanFilter* filter : {&stage_.positionFilterA(), &stage_.positionFilterB()}) {
    EXPECT_EQ(filter->timeStep(), dt);
    EXPECT_FALSE(filter->initialized());
    EXPECT_EQ(filter->transition(), transition);
    EXPECT_EQ(filter->observation(), observation);
    EXPECT_EQ(filter->processNoise(), 1e-5 * Eigen::MatrixXd::Identity(6, 6));
    EXPECT_EQ(filter->measurementNoise(), 1e-6 * Eigen::MatrixXd::Identity(3, 3));
    EXPECT_EQ(filter->initialCovariance(), Eigen::MatrixXd::Zero(6, 6));
  }
}

TEST_F(Steady3DTest, OnlyFilterMode1TrustsMeasurementsLess) {
  for (const std::int32_t mode : {0, 1, -2, 1, 2}) {
    stage_.setFilterMode(mode);
    configure(0);
    const double noise = mode == 1 ? 1e-4 : 1e-6;
    EXPECT_EQ(stage_.positionFilterA().measurementNoise()(0, 0), noise) << "mode " << mode;
    EXPECT_EQ(stage_.positionFilterB().measurementNoise()(2, 2), noise) << "mode " << mode;
  }
}

TEST_F(Steady3DTest, SettingTheFilterModeBuildsNothingUntilTheNextPreparation) {
  configure(0);
  EXPECT_TRUE(stage_.setFilterMode(1));
  EXPECT_EQ(stage_.filterMode(), 1);
  EXPECT_EQ(stage_.positionFilterA().stateDim(), 0);
  EXPECT_TRUE(stage_.prepare());
  EXPECT_EQ(stage_.positionFilterA().stateDim(), 6);
}

TEST_F(Steady3DTest, ProcessingDoesNotRunThePositionFilters) {
  stage_.setFilterMode(1);
  configure(1);
  frame({point(0, 1), point(1, 2), point(2, 3), point(2, 4)});
  EXPECT_FALSE(stage_.positionFilterA().initialized());
  EXPECT_FALSE(stage_.positionFilterB().initialized());
}

TEST_F(Steady3DTest, AFreshFilterStaysAtAPositionItIsGivenTwice) {
  stage_.setFilterMode(1);
  configure(0);
  KalmanFilter filter = stage_.positionFilterA();
  const Eigen::Vector3d p(10, -20, 1500);
  filter.init(0.0, p);
  filter.update(p);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(filter.state()(i), p(i));
    EXPECT_EQ(filter.state()(i + 3), 0.0);
  }
}

TEST_F(Steady3DTest, ConfiguringAnotherProductTypeResizesTheStorage) {
  configure(2);
  frame({point(5, 50)});
  configure(0);
  EXPECT_THAT(stage_.markers().index, ElementsAre(0, 1, 2));
  EXPECT_THAT(stage_.sightings().missCount, ElementsAre(0, 0, 0));
  frame({point(2, 20), point(5, 51)});
  EXPECT_THAT(ids(), ElementsAre(-1, -1, 2, -1, -1, -1, -1, -1, -1, -1));
}

TEST_F(Steady3DTest, ConfiguringAgainKeepsWhatWasAcceptedAndRemembered) {
  configure(1);
  frame({point(0, 0), point(2, 0), point(2, 60)});
  configure(1);
  EXPECT_EQ(stage_.guard(0).lastAccepted().z, 1000.0f);
  EXPECT_FALSE(stage_.guard(0).fresh());
  EXPECT_FALSE(stage_.twoPointObject().fresh());
  frame({point(0, 500)});
  EXPECT_EQ(record(0).x, 0.0f);  // still jump-tested against the frame before
}

class UnpreparedSteady3D : public Steady3D {
 public:
  bool prepare() override { return false; }
};

TEST(Steady3D, BindsNothingWhenPreparingFails) {
  UnpreparedSteady3D stage;
  std::vector<StereoPoint> input = {point(0, 1)};
  HeadingAlignment alignment;
  EXPECT_TRUE(stage.init(0));
  EXPECT_FALSE(stage.configure(&input, &alignment));
  EXPECT_TRUE(stage.process());
  EXPECT_EQ(input.size(), 1u);
}

// ------------------------------------------------------------------------------------ frames

TEST_F(Steady3DTest, LeavesTheInputEmptyAndExchangesItsStorage) {
  configure(0);
  // The second and the third point are not taken by any marker: the stage is left with them.
  input_ = {point(0, 1), point(0, 2), point(9, 3)};
  const StereoPoint* storage = input_.data();
  stage_.process();
  EXPECT_TRUE(input_.empty());
  input_ = {point(1, 4)};
  stage_.process();
  EXPECT_TRUE(input_.empty());
  EXPECT_EQ(input_.data(), storage);  // given back by the second exchange
  EXPECT_THAT(ids(), ElementsAre(-1, 1, -1, -1, -1, -1, -1, -1, -1, -1));
}

TEST_F(Steady3DTest, WithoutObjectsTheTableIsNotTouched) {
  configure(3);
  frame({point(0, 1)});
  EXPECT_THAT(ids(), Each(-1));
  EXPECT_EQ(record(0).x, 0.0f);
}

TEST_F(Steady3DTest, AFrameWithoutPointsClearsAllIdsAndCountsAMissOfEveryObject) {
  for (const std::int32_t type : {0, 1, 2}) {
    configure(type);
    frame({point(0, 1), point(1, 2), point(2, 3)});
    frame({});
    frame({});
    EXPECT_THAT(ids(), Each(-1));
    const auto& misses = stage_.sightings().missCount;
    EXPECT_THAT(std::vector<std::int32_t>(misses.begin(), misses.begin() + 3), Each(2)) << type;
  }
}

TEST_F(Steady3DTest, TypesWithoutSpecialObjectsTakeThePointsAsTheyCome) {
  for (const std::int32_t type : {0, 2}) {
    configure(type);
    frame({point(2, 30, 31, 1032), point(0, 10, 11, 1012)});
    EXPECT_EQ(record(0).id, 0);
    EXPECT_EQ(record(0).x, 10.0f);
    EXPECT_EQ(record(0).y, 11.0f);  // not mirrored here
    EXPECT_EQ(record(0).z, 1012.0f);
    EXPECT_EQ(record(1).id, -1);
    EXPECT_EQ(record(2).id, 2);
    EXPECT_EQ(record(2).y, 31.0f);
    EXPECT_EQ(record(2).bearing, 0.0f);
    frame({point(0, 5000)});  // no jump test
    EXPECT_EQ(record(0).x, 5000.0f);
  }
}

TEST_F(Steady3DTest, ARecordThatLosesItsObjectKeepsThePosition) {
  configure(2);
  frame({point(4, 40)});
  frame({});
  EXPECT_EQ(record(4).id, -1);
  EXPECT_EQ(record(4).x, 40.0f);
}

TEST_F(Steady3DTest, APointWithoutAnObjectGetsNoRecord) {
  configure(0);
  frame({point(3, 1), point(-1, 2), point(1, 3)});
  EXPECT_THAT(ids(), ElementsAre(-1, 1, -1, -1, -1, -1, -1, -1, -1, -1));
}

TEST_F(Steady3DTest, OnlyTheFirstPointOfAnIdCounts) {
  configure(2);
  frame({point(1, 10), point(1, 20)});
  EXPECT_EQ(record(1).x, 10.0f);
  frame({});  // the second point is not carried into the next frame
  EXPECT_EQ(record(1).id, -1);
}

TEST_F(Steady3DTest, MissingPointsAreNotHeld) {
  configure(0);
  frame({point(0, 10)});
  frame({});
  EXPECT_EQ(stage_.sightings().lastSeen[0].id, 0);
  EXPECT_EQ(record(0).id, -1);
}

// -------------------------------------------------------- product type 1, objects 0 and 1

TEST_F(Steady3DTest, SingleObjectsFollowJumpsOfUpTo80) {
  configure(1);
  frame({point(0, 0), point(1, 200)});
  frame({point(0, 80), point(1, 280)});
  EXPECT_EQ(record(0).x, 80.0f);
  EXPECT_EQ(record(1).x, 280.0f);
  frame({point(0, 160.001), point(1, 199.999)});
  EXPECT_EQ(record(0).x, 80.0f);
  EXPECT_EQ(record(1).x, 280.0f);
  EXPECT_EQ(record(0).id, 0);
  EXPECT_EQ(record(1).id, 1);
  EXPECT_EQ(stage_.guard(0).rejectCount(), 1);
  EXPECT_EQ(stage_.guard(1).rejectCount(), 1);
}

TEST_F(Steady3DTest, SingleObjectsAreForcedAfterAHundredRejections) {
  for (const std::int32_t object : {0, 1}) {
    const auto k = static_cast<std::size_t>(object);
    configure(1);
    frame({});
    frame({point(object, 0)});
    for (int i = 0; i < 100; ++i) {
      frame({point(object, 500)});
      ASSERT_EQ(record(k).x, 0.0f) << "rejection " << i + 1;
    }
    frame({point(object, 500)});
    EXPECT_EQ(record(k).x, 500.0f);
    frame({point(object, 0)});
    EXPECT_EQ(record(k).x, 500.0f);
  }
}

TEST_F(Steady3DTest, TheSingleObjectsCountTheirRejectionsApart) {
  configure(1);
  frame({point(0, 0), point(1, 0)});
  frame({point(0, 500), point(1, 10)});
  frame({point(0, 500), point(1, 20)});
  EXPECT_EQ(stage_.guard(0).rejectCount(), 2);
  EXPECT_EQ(stage_.guard(1).rejectCount(), 0);
}

TEST_F(Steady3DTest, AnObjectThatReappearsIsAcceptedWithoutAJumpTest) {
  configure(1);
  frame({point(0, 0), point(1, 0)});
  frame({point(1, 1)});
  EXPECT_EQ(record(0).id, -1);
  EXPECT_TRUE(stage_.guard(0).fresh());
  EXPECT_FALSE(stage_.guard(1).fresh());
  EXPECT_EQ(stage_.sightings().lastSeen[0].id, -1);
  EXPECT_EQ(stage_.sightings().lastSeen[1].id, 1);
  frame({point(0, 3000), point(1, 2)});
  EXPECT_EQ(record(0).x, 3000.0f);
}

TEST_F(Steady3DTest, SingleObjectsHaveNoBearing) {
  configure(1);
  frame({point(0, 1000), point(1, 1000)});
  EXPECT_EQ(record(0).bearing, 0.0f);
  EXPECT_EQ(record(1).bearing, 0.0f);
}

// ---------------------------------------------------------------- product type 1, object 2

TEST_F(Steady3DTest, TheTwoPointObjectIsReportedInRecord2Alone) {
  configure(1);
  frame({point(2, 970), point(2, 1030)});
  EXPECT_THAT(ids(), ElementsAre(-1, -1, 2, -1, -1, -1, -1, -1, -1, -1));
  EXPECT_EQ(record(2).x, 1000.0f);
  EXPECT_EQ(record(2).z, 1000.0f);
  EXPECT_NEAR(record(2).bearing, 45, 1e-5);
  EXPECT_EQ(record(3).x, 0.0f);
}

TEST_F(Steady3DTest, TheBearingIsThatOfTheReportedPoint) {
  configure(1);
  frame({point(2, -30), point(2, 30)});
  frame({point(2, 970), point(2, 1030)});  // a jump: held at the centre
  EXPECT_EQ(record(2).x, 0.0f);
  EXPECT_EQ(record(2).bearing, 0.0f);
}

TEST_F(Steady3DTest, TheSideHintReachesTheTwoPointObject) {
  for (const std::int32_t hint : {1, 2}) {
    configure(1);
    frame({});
    frame({point(2, 0), point(2, 60)});
    EXPECT_TRUE(stage_.setSideHint(hint));
    frame({point(2, 30)});
    EXPECT_EQ(record(2).x, hint == 1 ? 60.0f : 0.0f);
    EXPECT_EQ(record(2).id, 2);
  }
}

TEST_F(Steady3DTest, TheSideHintReachesTheRampOfTwoPointFrames) {
  configure(1);
  frame({point(2, -30), point(2, 30)});
  frame({point(2, -30), point(2, 30)});
  frame({point(2, 30)});
  stage_.setSideHint(1);
  frame({point(2, -40), point(2, 40)});
  // From the first: -40 + 30 = -10, of which 89/90.
  EXPECT_NEAR(record(2).x, -9.8888889, 1e-5);
}

TEST_F(Steady3DTest, WithoutAHintTheNearerPointDecides) {
  configure(1);
  frame({point(2, 60), point(2, 0)});
  frame({point(2, 5)});
  EXPECT_EQ(record(2).x, 35.0f);
}

TEST_F(Steady3DTest, TheDiameterRatioOfTheTwoMarkersIsTestedWithTheFactorOfTheProduct) {
  configure(1);
  const auto pair = [](double x, std::int32_t first, std::int32_t second) {
    return std::vector<StereoPoint>{point(2, x + 60, 0, 1000, first), point(1, x),
                                    point(2, x, 0, 1000, second)};
  };
  frame(pair(0, 20, 10));
  frame(pair(1, 20, 10));  // the first test only sets the reference
  EXPECT_EQ(record(2).x, 30.0f);
  EXPECT_EQ(stage_.twoPointObject().referenceRatio(), 2.0f);
  frame(pair(2, 24, 10));
  EXPECT_EQ(record(2).x, 32.0f);
  frame(pair(3, 25, 10));
  EXPECT_EQ(record(2).x, 32.0f);
  EXPECT_EQ(stage_.twoPointObject().referenceRatio(), 2.5f);
}

TEST_F(Steady3DTest, TheTwoPointObjectIsForcedAfterAHundredRejections) {
  configure(1);
  frame({point(2, 0), point(2, 60)});
  frame({point(2, 0), point(2, 60)});
  frame({point(2, 150), point(2, 210)});
  EXPECT_EQ(record(2).x, 180.0f);  // exactly 150 farther
  for (int i = 0; i < 100; ++i) {
    frame({point(2, 970), point(2, 1030)});
    ASSERT_EQ(record(2).x, 180.0f) << "rejection " << i + 1;
  }
  frame({point(2, 970), point(2, 1030)});
  EXPECT_EQ(record(2).x, 1000.0f);
}

TEST_F(Steady3DTest, TheTwoPointObjectReappearsWithoutTests) {
  configure(1);
  frame({point(2, 0), point(2, 60)});
  frame({});
  EXPECT_EQ(record(2).id, -1);
  EXPECT_TRUE(stage_.twoPointObject().fresh());
  EXPECT_EQ(stage_.sightings().lastSeen[2].id, -1);
  frame({point(2, 1970, 0, 1000, 20), point(2, 2030)});
  EXPECT_EQ(record(2).x, 2000.0f);
  EXPECT_EQ(stage_.twoPointObject().referenceRatio(), 0.0f);
}

TEST_F(Steady3DTest, ABearingStaysWhenTheObjectIsGone) {
  configure(1);
  frame({point(2, 970), point(2, 1030)});
  frame({});
  EXPECT_NEAR(record(2).bearing, 45, 1e-5);
}

// ------------------------------------------------------------------------- heading alignment

TEST_F(Steady3DTest, TwoPointFramesFeedTheHeadingAlignment) {
  configure(1);
  frame({point(2, 40, 3, 1000), point(2, -28, 3, 1000)});
  EXPECT_EQ(alignment_.pairDistance, 68.0f);
  EXPECT_EQ(alignment_.pointA.x, -28.0f);
  EXPECT_EQ(alignment_.pointA.y, 3.0f);
  EXPECT_EQ(alignment_.pointA.z, 1000.0f);
  EXPECT_EQ(alignment_.pointA.tag, 0.0f);
  EXPECT_EQ(alignment_.pointB.x, 40.0f);
  EXPECT_EQ(alignment_.score, 1.0f);
  EXPECT_TRUE(alignment_.hasResult);
}

TEST_F(Steady3DTest, ThePairIsHandedOverInTheOrderOfTheMarkers) {
  configure(1);
  // The alignment looks for equal coordinates in the first point only.
  frame({point(2, 5, 5, 1000), point(2, 40, 3, 1000)});
  EXPECT_TRUE(alignment_.headingHistory.empty());
  frame({point(2, 40, 3, 1000), point(2, 5, 5, 1000)});
  EXPECT_EQ(alignment_.headingHistory.size(), 1u);
}

TEST_F(Steady3DTest, AHeldFrameStillFeedsTheHeadingAlignment) {
  configure(1);
  frame({point(2, 0, 3), point(2, 60, 3)});
  frame({point(2, 2000, 3), point(2, 2068, 3)});
  EXPECT_EQ(record(2).x, 30.0f);
  EXPECT_EQ(alignment_.pointA.x, 2000.0f);
  EXPECT_EQ(alignment_.headingHistory.size(), 2u);
}

TEST_F(Steady3DTest, OtherFramesDoNotFeedTheHeadingAlignment) {
  configure(1);
  frame({point(2, 0, 3), point(0, 60, 3), point(1, 30, 3)});
  configure(0);
  frame({point(2, 0, 3), point(2, 60, 3)});
  configure(2);
  frame({point(2, 0, 3), point(2, 60, 3)});
  EXPECT_TRUE(alignment_.headingHistory.empty());
}

TEST_F(Steady3DTest, WorksWithoutAHeadingAlignment) {
  stage_.setLogger(&log_);
  stage_.init(1);
  ASSERT_TRUE(stage_.configure(&input_, nullptr));
  frame({point(2, 0, 3), point(2, 60, 3)});
  EXPECT_EQ(record(2).x, 30.0f);
}

// ------------------------------------------------------------------------------------- result

TEST_F(Steady3DTest, TheTableHoldsIdsPositionsAndBearingsAndNothingElse) {
  configure(1);
  frame({point(0, 1, 2, 1003), point(2, 970), point(2, 1030)});
  EXPECT_EQ(record(0).id, 0);
  EXPECT_EQ(record(0).y, 2.0f);
  EXPECT_EQ(record(0).z, 1003.0f);
  EXPECT_EQ(record(1).id, -1);
  EXPECT_EQ(record(2).x, 1000.0f);
  EXPECT_NEAR(record(2).bearing, 45, 1e-5);
  for (std::size_t k = 0; k < stage_.table().size(); ++k) {
    EXPECT_THAT(record(k).hostPosition, Each(0.0f));
    EXPECT_THAT(record(k).hostOrientation, Each(0.0f));
    if (k > 2) {
      EXPECT_EQ(record(k).id, -1);
    }
  }
}

/// Notes what the stage does not report.
struct Held : NoObserver {
  std::vector<std::tuple<std::size_t, BlobFate, double>> seen;
  void held(std::size_t object, BlobFate fate, double, double limit) {
    seen.emplace_back(object, fate, limit);
  }
};

TEST_F(Steady3DTest, TellsWhichPositionsItHoldsBackAndAtWhichLimit) {
  configure(1);
  Held held;
  for (const double x : {0.0, 500.0}) {
    input_ = {point(0, x), point(1, 0), point(2, x - 30), point(2, x + 30)};
    stage_.process(held);
  }
  // The pair's first ratio has nothing to compare with: it is held before its jump is looked at.
  EXPECT_THAT(held.seen,
              ElementsAre(std::tuple(0u, BlobFate::kHeldByJump, 80.0),
                          std::tuple(2u, BlobFate::kHeldByRatio, static_cast<double>(1.2f))));
}

// ------------------------------------------------------------------------- auxiliary inputs

TEST_F(Steady3DTest, AuxiliaryInputsStartAtZero) {
  EXPECT_THAT(stage_.gyroA(), Each(0.0f));
  EXPECT_THAT(stage_.accelA(), Each(0.0f));
  EXPECT_THAT(stage_.gyroB(), Each(0.0f));
  EXPECT_THAT(stage_.auxVector(), Each(0.0f));
  EXPECT_EQ(stage_.sideHint(), 0);
}

TEST_F(Steady3DTest, ScalesInertialCounts) {
  // 164 / 16.4 = 10 degrees per second; 2048 / 2048 g = 9.81 m/s2.
  EXPECT_TRUE(stage_.setImuA(164, -164, 0, 2048, -2048, 0));
  EXPECT_NEAR(stage_.gyroA()[0], 10.0, 1e-6);
  EXPECT_NEAR(stage_.gyroA()[1], -10.0, 1e-6);
  EXPECT_EQ(stage_.gyroA()[2], 0.0f);
  EXPECT_FLOAT_EQ(stage_.accelA()[0], 9.81f);
  EXPECT_FLOAT_EQ(stage_.accelA()[1], -9.81f);
  EXPECT_EQ(stage_.accelA()[2], 0.0f);
  EXPECT_THAT(stage_.gyroB(), Each(0.0f));
}

TEST_F(Steady3DTest, ScalesInSinglePrecisionGravityFirst) {
  stage_.setImuA(32767, -32768, 7, 32767, -32768, 3);
  EXPECT_EQ(stage_.gyroA()[0], 32767.0f / 16.4f);
  EXPECT_EQ(stage_.gyroA()[1], -32768.0f / 16.4f);
  EXPECT_EQ(stage_.gyroA()[2], 7.0f / 16.4f);
  EXPECT_EQ(stage_.accelA()[0], (32767.0f * 9.81f) * 0.00048828125f);
  EXPECT_EQ(stage_.accelA()[1], (-32768.0f * 9.81f) * 0.00048828125f);
  EXPECT_EQ(stage_.accelA()[2], (3.0f * 9.81f) * 0.00048828125f);
}

TEST_F(Steady3DTest, TheSecondDeviceHasItsOwnSample) {
  EXPECT_TRUE(stage_.setImuB(164, 328, 492, 2048, 4096, 6144));
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(stage_.gyroB()[i], 10.0 * (i + 1), 1e-5);
    EXPECT_NEAR(stage_.accelB()[i], 9.81 * (i + 1), 1e-5);
  }
  EXPECT_THAT(stage_.gyroA(), Each(0.0f));
  EXPECT_THAT(stage_.accelA(), Each(0.0f));
}

TEST_F(Steady3DTest, KeepsTheAuxiliaryVectorAndTheSideHint) {
  EXPECT_TRUE(stage_.setAuxVector(1.5f, -2.5f, 3.5f));
  EXPECT_THAT(stage_.auxVector(), ElementsAre(1.5f, -2.5f, 3.5f));
  EXPECT_TRUE(stage_.setSideHint(-7));
  EXPECT_EQ(stage_.sideHint(), -7);
}

}  // namespace
}  // namespace algorithm
