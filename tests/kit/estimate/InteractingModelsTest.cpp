#include <alg_kit/estimate/InteractingModels.h>
#include <gtest/gtest.h>
#include <sim/Random.h>

#include <Eigen/LU>
#include <cmath>

namespace estimate {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

constexpr double kPeriod = 1 / 90.0;

MotionState atRest() {
  MotionState state;
  state.p = Vector3d(0, 0, 1500);
  state.pp = Matrix3d::Identity() * 4;
  state.vv = Matrix3d::Identity() * 1e6;
  state.aa = Matrix3d::Identity() * 1e8;
  return state;
}

PositionInformation measured(const Vector3d& place, double deviation) {
  PositionInformation information;
  information.at = place;
  information.weight = Matrix3d::Identity() / (deviation * deviation);
  information.numbers = 4;
  return information;
}

ModelSet sameModels(double jerk) {
  ModelSet set;
  for (MotionModel& model : set.models) model = {jerk, 0, 0.25};
  return set;
}

TEST(InteractingModels, ThatAreAllTheSameAreOneKalmanFilter) {
  InteractingModels models(sameModels(1e6));
  MotionState one = atRest();
  models.start(one);
  sim::Random random(5);
  for (int i = 0; i < 300; ++i) {
    models.predict(kPeriod);
    predict(one, Step(kPeriod, models.set().memory), 1e6);
    const auto information =
        measured(Vector3d(random.normal(), random.normal(), 1500 + random.normal()), 1);
    models.correct(information, 1e9);
    fitAndCorrect(one, information);
  }
  EXPECT_LT((models.marker().p - one.p).norm(), 1e-6);
  EXPECT_LT((models.marker().pp - one.pp).norm(), 1e-8);
  EXPECT_LT((models.marker().aa - one.aa).norm(), 1e-6 * one.aa.norm());
}

MotionState modelOf(const InteractingModels& models, int m) {
  const MotionStateOf<Lanes>& all = models.models();
  const auto vectorOf = [m](const auto& x) { return Vector3d(x[0][m], x[1][m], x[2][m]); };
  const auto blockOf = [m](const auto& x) -> Matrix3d {
    return Matrix3d::NullaryExpr([&](Eigen::Index i, Eigen::Index j) { return x(i, j)[m]; });
  };
  MotionState s;
  s.p = vectorOf(all.p);
  s.v = vectorOf(all.v);
  s.a = vectorOf(all.a);
  s.pp = blockOf(all.pp);
  s.pv = blockOf(all.pv);
  s.pa = blockOf(all.pa);
  s.vv = blockOf(all.vv);
  s.va = blockOf(all.va);
  s.aa = blockOf(all.aa);
  return s;
}

// The textbook's mixing over all pairs of models, for the transition "stay, or be drawn anew".
TEST(InteractingModels, MixAsTheFullTransitionMatrixSays) {
  const ModelSet set;  // with tremor: what is mixed is the motion, without the displacement
  InteractingModels calm(set);
  calm.start(atRest());
  sim::Random random(6);
  for (int i = 0; i < 40; ++i) {
    calm.predict(kPeriod);
    calm.correct(measured(Vector3d(30 * std::sin(i * 0.1), random.normal(), 1500), 1), 1e9);
  }
  const MotionStateOf<Lanes> states = calm.models();
  const auto weights = calm.probabilities();
  calm.predict(kPeriod);
  const double stays = std::exp(-kPeriod / set.dwell);
  for (int j = 0; j < kModels; ++j) {
    double prior = 0;
    std::array<double, kModels> mixing{};
    for (int i = 0; i < kModels; ++i) {
      mixing[i] = ((i == j ? stays : 0) + (1 - stays) * set.models[j].share) * weights[i];
      prior += mixing[i];
    }
    for (double& weight : mixing) weight /= prior;
    MotionState expected = mixtureOf(states, Lanes(mixing));
    predict(expected, Step(kPeriod, set.memory), set.models[j].jerk);
    EXPECT_NEAR(calm.probabilities()[j], prior, 1e-12);
    EXPECT_LT((modelOf(calm, j).p - expected.p).norm(), 1e-9);
    EXPECT_LT((modelOf(calm, j).pp - expected.pp).norm(), 1e-9 * expected.pp.norm());
    EXPECT_LT((modelOf(calm, j).va - expected.va).norm(), 1e-9 * expected.va.norm());
    EXPECT_LT((modelOf(calm, j).aa - expected.aa).norm(), 1e-9 * expected.aa.norm());
  }
}

// Each model's marker is displaced by its own share of what was measured.
TEST(InteractingModels, GiveTheMixtureOfTheirDisplacedMarkers) {
  InteractingModels models;
  models.start(atRest());
  sim::Random random(8);
  for (int i = 0; i < 60; ++i) {
    models.predict(kPeriod);
    const auto information = measured(
        Vector3d(40 * std::sin(i * 0.2), 2 * random.normal(), 1500 + 2 * random.normal()), 1);
    std::array<MotionState, kModels> markers;
    for (int m = 0; m < kModels; ++m) {
      MotionState state = modelOf(models, m);
      fitAndCorrect(state, information, models.set().models[m].tremor, &markers[m]);
    }
    models.correct(information, 1e9);
    const auto share = models.probabilities();
    MotionState expected;
    for (std::size_t m = 0; m < kModels; ++m) {
      expected.p += share[m] * markers[m].p;
      expected.v += share[m] * markers[m].v;
      expected.a += share[m] * markers[m].a;
    }
    for (std::size_t m = 0; m < kModels; ++m) {
      const Vector3d p = markers[m].p - expected.p, v = markers[m].v - expected.v,
                     a = markers[m].a - expected.a;
      expected.pp += share[m] * (markers[m].pp + p * p.transpose());
      expected.pv += share[m] * (markers[m].pv + p * v.transpose());
      expected.pa += share[m] * (markers[m].pa + p * a.transpose());
      expected.va += share[m] * (markers[m].va + v * a.transpose());
    }
    const MotionState marker = models.marker();
    EXPECT_LT((marker.p - expected.p).norm(), 1e-9);
    EXPECT_LT((marker.v - expected.v).norm(), 1e-9 * expected.v.norm());
    EXPECT_LT((marker.pp - expected.pp).norm(), 1e-9 * expected.pp.norm());
    EXPECT_LT((marker.pv - expected.pv).norm(), 1e-9 * expected.pv.norm());
    EXPECT_LT((marker.pa - expected.pa).norm(), 1e-9 * expected.pa.norm());
    EXPECT_LT((marker.va - expected.va).norm(), 1e-9 * expected.va.norm());
    EXPECT_LT((models.place().pp - expected.pp).norm(), 1e-9 * expected.pp.norm());
  }
}

TEST(InteractingModels, TellStillFromFast) {
  InteractingModels still, fast;
  still.start(atRest());
  fast.start(atRest());
  sim::Random random(7);
  for (int i = 0; i < 400; ++i) {
    const Vector3d noise(random.normal(), random.normal(), random.normal());
    still.predict(kPeriod);
    still.correct(measured(Vector3d(0, 0, 1500) + noise, 1), 1e9);
    fast.predict(kPeriod);
    fast.correct(measured(Vector3d(100 * std::sin(i * kPeriod * 20), 0, 1500) + noise, 1), 1e9);
  }
  EXPECT_GT(still.probabilities()[0] + still.probabilities()[1], 0.8);
  EXPECT_GT(fast.probabilities()[2] + fast.probabilities()[3], 0.8);
  EXPECT_LT(still.marker().pp.trace(), 0.5 * fast.marker().pp.trace());
}

TEST(InteractingModels, LeaveAMeasurementOutsideTheGateAlone) {
  InteractingModels models;
  models.start(atRest());
  for (int i = 0; i < 100; ++i) {
    models.predict(kPeriod);
    models.correct(measured(Vector3d(0, 0, 1500), 1), 36);
  }
  models.predict(kPeriod);
  const MotionState before = models.marker();
  EXPECT_GT(models.correct(measured(Vector3d(50, 0, 1500), 1), 36), 36);
  EXPECT_EQ(models.marker().p, before.p);
  EXPECT_EQ(models.marker().pp, before.pp);
}

TEST(InteractingModels, ExtrapolateAsTheyWouldPredict) {
  ModelSet set = sameModels(1e7);
  InteractingModels models(set);
  models.start(atRest());
  const MotionState ahead = models.markerAfter(0.05);
  models.predict(0.05);
  EXPECT_LT((ahead.p - models.marker().p).norm(), 1e-9);
  EXPECT_LT((ahead.pp - models.marker().pp).norm(), 1e-9 * ahead.pp.norm());
}

// The fourth model's place, with its tremor.
TEST(InteractingModels, AreLeastSureUnderTheFastest) {
  InteractingModels models;
  models.start(atRest());
  for (int i = 0; i < 100; ++i) {
    models.predict(kPeriod);
    models.correct(measured(Vector3d(0.01 * i, 0, 1500), 1), 36);
  }
  models.predict(kPeriod);
  const InteractingModels::Place widest = models.widest();
  const double tremor = models.set().models[3].tremor;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(widest.p[i], models.models().p[i][3]);
    EXPECT_EQ(widest.pp(i, i), models.models().pp(i, i)[3] + tremor * tremor);
  }
  EXPECT_GT(widest.pp.trace(), 1.5 * models.place().pp.trace());
}

}  // namespace
}  // namespace estimate
