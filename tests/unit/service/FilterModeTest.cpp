#include <tests/unit/service/ServiceFixture.h>

namespace algorithm {
namespace {

class FilterModeTest : public ServiceFixture {
 protected:
  std::vector<const KalmanFilter*> allFilters() const {
    std::vector<const KalmanFilter*> filters;
    for (const KalmanFilter& filter : service_.headFilters()) filters.push_back(&filter);
    for (const KalmanFilter& filter : service_.markerFilters()) filters.push_back(&filter);
    return filters;
  }
};

TEST_F(FilterModeTest, MinusOneBuildsNoFilter) {
  initialize(0);
  EXPECT_TRUE(service_.setFilterMode(0, -1, nullptr));
  EXPECT_EQ(service_.filterMode(), -1);
  for (const KalmanFilter* filter : allFilters()) {
    EXPECT_EQ(filter->stateDim(), 0);
    EXPECT_EQ(filter->state().size(), 0);
  }
  EXPECT_EQ(service_.model().transition.size(), 0);
  EXPECT_EQ(service_.model().measurementNoise.size(), 0);
}

TEST_F(FilterModeTest, EveryOtherModeBuildsAllNineFilters) {
  Eigen::MatrixXd transition = Eigen::MatrixXd::Identity(6, 6);
  transition(0, 3) = transition(1, 4) = transition(2, 5) = 1.0 / 90;
  Eigen::MatrixXd observation = Eigen::MatrixXd::Zero(3, 6);
  observation(0, 0) = observation(1, 1) = observation(2, 2) = 1;
  for (const int mode : {0, 1, -2, 1, 2}) {
    ASSERT_TRUE(service_.setFilterMode(0, mode, nullptr));
    EXPECT_EQ(service_.filterMode(), mode);
    EXPECT_EQ(service_.steady().filterMode(), mode);
    const double noise = mode == 1 ? 1e-4 : 1e-6;
    ASSERT_EQ(allFilters().size(), 9u);
    for (const KalmanFilter* filter : allFilters()) {
      EXPECT_EQ(filter->timeStep(), 0.011111111111111112);
      EXPECT_EQ(filter->transition(), transition);
      EXPECT_EQ(filter->observation(), observation);
      EXPECT_EQ(filter->processNoise(), 1e-5 * Eigen::MatrixXd::Identity(6, 6));
      EXPECT_EQ(filter->measurementNoise(), noise * Eigen::MatrixXd::Identity(3, 3));
      EXPECT_EQ(filter->initialCovariance(), Eigen::MatrixXd::Zero(6, 6));
      EXPECT_FALSE(filter->initialized());
    }
  }
}

TEST_F(FilterModeTest, TheModelOutlivesTheCall) {
  service_.setFilterMode(0, 1, nullptr);
  EXPECT_EQ(service_.model().transition(0, 3), 1.0 / 90);
  EXPECT_EQ(service_.model().observation(2, 2), 1.0);
  EXPECT_EQ(service_.model().processNoise(5, 5), 1e-5);
  EXPECT_EQ(service_.model().measurementNoise(2, 2), 1e-4);
  EXPECT_EQ(service_.model().initialCovariance.size(), 36);
  service_.setFilterMode(0, 0, nullptr);
  EXPECT_EQ(service_.model().measurementNoise(2, 2), 1e-6);
}

TEST_F(FilterModeTest, SwitchingOffKeepsFiltersModelAndIds) {
  initialize(2);
  service_.setFilterMode(0, 1, nullptr);
  frame({{0, 10, 20, 1200}});
  const KalmanFilter::Vector state = service_.markerFilters()[0].state();
  EXPECT_TRUE(service_.setFilterMode(0, -1, nullptr));
  EXPECT_EQ(service_.filterMode(), -1);
  EXPECT_EQ(service_.steady().filterMode(), -1);
  EXPECT_EQ(service_.markerFilters()[0].state(), state);
  EXPECT_TRUE(service_.markerFilters()[0].initialized());
  EXPECT_EQ(service_.model().measurementNoise(0, 0), 1e-4);
  frame({{0, 10, 20, 1200}});
  EXPECT_DOUBLE_EQ(service_.markerFilters()[0].time(), 1.0 / 90);  // not fed while off
}

TEST_F(FilterModeTest, EveryCallLosesTheFiltersState) {
  initialize(2);
  service_.setFilterMode(0, 0, nullptr);
  frame({{0, 10, 20, 1200}});
  stampedFrame(1, {{0, 10, 20, 1200}});
  ASSERT_TRUE(service_.markerFilters()[0].initialized());
  ASSERT_TRUE(service_.headFilters()[1].initialized());
  service_.setFilterMode(0, 0, nullptr);
  for (const KalmanFilter* filter : allFilters()) {
    EXPECT_FALSE(filter->initialized());
    EXPECT_EQ(filter->state(), Eigen::VectorXd::Zero(6));
  }
}

TEST_F(FilterModeTest, TheHeadFiltersStartAgainFromTheNextPosition) {
  initialize(0);
  service_.setFilterMode(0, 1, nullptr);
  stampedFrame(1, {{0, 10, 20, 1200}});
  stampedFrame(2, {{0, 10, 20, 1200}});
  service_.setFilterMode(0, 1, nullptr);
  const ResultBlock& block = stampedFrame(3, {{0, 10, 20, 1200}});
  // Started at the position, so the first update finds it there.
  const KalmanFilter::Vector& state = service_.headFilters()[1].state();
  EXPECT_EQ(state(0), block.records[0].x);
  EXPECT_EQ(state(2), block.records[0].z);
  EXPECT_EQ(state(3), 0.0);
}

TEST_F(FilterModeTest, TheMarkerFiltersOfPresentObjectsGoOnFromZero) {
  for (const int mode : {0, 1}) {
    initialize(2);
    frame({});
    service_.setFilterMode(0, mode, nullptr);
    frame({{0, 10, 20, 1200}});
    service_.setFilterMode(0, mode, nullptr);
    const ResultBlock& block = frame({{0, 10, 20, 1200}});
    // The object was there in the block before: no start at its position. From the zero state with
    // P = Q the gain is Q / (Q + R): 1e-5 / 1.1e-5 = 10/11 in mode 0, 1e-5 / 1.1e-4 = 1/11 in
    // mode 1.
    const double gain = mode == 0 ? 10.0 / 11 : 1.0 / 11;
    const KalmanFilter::Vector& state = service_.markerFilters()[0].state();
    EXPECT_NEAR(state(0), gain * block.records[0].x, 1e-9);
    EXPECT_NEAR(state(2), gain * block.records[0].z, 1e-9);
    // One block of absence, and it starts at the position.
    frame({});
    const ResultBlock& back = frame({{0, 10, 20, 1200}});
    EXPECT_EQ(service_.markerFilters()[0].state()(0), back.records[0].x);
    EXPECT_EQ(service_.markerFilters()[0].state()(2), back.records[0].z);
    service_.setFilterMode(0, -1, nullptr);
  }
}

TEST_F(FilterModeTest, TheStabilisationStageBuildsItsFiltersAtTheNextInitialization) {
  initialize(0);
  service_.setFilterMode(0, 1, nullptr);
  EXPECT_EQ(service_.steady().positionFilterA().stateDim(), 0);
  initialize(0);
  EXPECT_EQ(service_.steady().positionFilterA().measurementNoise()(0, 0), 1e-4);
  EXPECT_EQ(service_.steady().positionFilterB().measurementNoise()(0, 0), 1e-4);
}

}  // namespace
}  // namespace algorithm
