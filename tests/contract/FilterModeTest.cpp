#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <ostream>
#include <vector>

#include <tests/support/Host.h>
#include <tests/support/TextbookFilter.h>

namespace {

using algorithm::PoseAnswer;
using testing::IsEmpty;
using testing_support::Host;
using testing_support::Marker;
using testing_support::TextbookFilter;
using testing_support::unfiltered;

constexpr double kSmallNoise = 1e-6;
constexpr double kLargeNoise = 1e-4;
constexpr double kSingle = 2e-4;  // a float near 2000 holds this much

/// One pose filter, written out per axis.
struct ReferenceFilter {
  explicit ReferenceFilter(double noise)
      : axes{TextbookFilter(noise), TextbookFilter(noise), TextbookFilter(noise)} {}

  void start(const float (&y)[3]) {
    for (int i = 0; i < 3; ++i) axes[i].start(y[i]);
  }
  void update(const float (&y)[3]) {
    for (int i = 0; i < 3; ++i) axes[i].update(y[i]);
  }

  std::array<TextbookFilter, 3> axes;
};

void expectState(const PoseAnswer& answer, const ReferenceFilter& reference) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(answer.filtered[i], reference.axes[i].position, kSingle) << "axis " << i;
    EXPECT_NEAR(answer.rate[i], reference.axes[i].rate, kSingle) << "axis " << i;
    EXPECT_EQ(answer.rateCopy[i], answer.rate[i]) << "axis " << i;
  }
}

TEST(FilterMode, IsOffUntilSet) {
  const Host host(2);
  for (int n = 0; n < 5; ++n) {
    host.see({{0, 10.0 * n, 0, 1000}});
    EXPECT_TRUE(unfiltered(host.pose(0)));
  }
}

TEST(FilterMode, OtherParametersAreRefusedSilentlyAndChangeNothing) {
  const Host host(2);
  for (const int parameter :
       {1, -1, 16, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    EXPECT_FALSE(host.alg->SetFilterMode(parameter, 0, nullptr));
    EXPECT_FALSE(host.alg->SetFilterMode(parameter, -1, nullptr));
  }
  for (int n = 0; n < 5; ++n) host.see({{0, 10.0 * n, 0, 1000}});
  EXPECT_TRUE(unfiltered(host.pose(0))) << "still off";
  EXPECT_THAT(host.log.lines, IsEmpty());

  ASSERT_TRUE(host.alg->SetFilterMode(0, 0, nullptr));
  host.see({{0, 50, 0, 1000}});
  host.see({{0, 60, 0, 1000}});
  const PoseAnswer before = host.pose(0);
  ASSERT_FALSE(unfiltered(before));
  EXPECT_FALSE(host.alg->SetFilterMode(1, -1, nullptr));
  EXPECT_FALSE(host.alg->SetFilterMode(2, 1, nullptr));
  const PoseAnswer after = host.pose(0);
  EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0)
      << "still on, and the filters are the same";
}

TEST(FilterMode, OffIsAcceptedAndFiltersNothing) {
  const Host host(2);
  EXPECT_TRUE(host.alg->SetFilterMode(0, -1, nullptr));
  for (int n = 0; n < 5; ++n) host.see({{0, 10.0 * n, 0, 1000}});
  EXPECT_TRUE(unfiltered(host.pose(0)));
  EXPECT_THAT(host.log.lines, IsEmpty());
}

TEST(FilterMode, ReservedArgumentIsNotUsed) {
  const Host host(2);
  int anything = 5;
  EXPECT_TRUE(host.alg->SetFilterMode(0, 1, &anything));
  EXPECT_EQ(anything, 5);
}

struct ModeAndNoise {
  int mode;
  double noise;

  friend std::ostream& operator<<(std::ostream& out, const ModeAndNoise& c) {
    return out << "mode " << c.mode;
  }
};

class FilterModeNoise : public testing::TestWithParam<ModeAndNoise> {};

// All six objects of product type 2 on different paths; each answer against the textbook recursion
// of that object's own measurements (those of the delivered block).
TEST_P(FilterModeNoise, MarkerFiltersFollowTheTextbookRecursion) {
  const Host host(2);
  ASSERT_TRUE(host.alg->SetFilterMode(0, GetParam().mode, nullptr));
  std::vector<ReferenceFilter> references(6, ReferenceFilter(GetParam().noise));
  for (int n = 0; n < 40; ++n) {
    std::vector<Marker> markers;
    for (int k = 0; k < 6; ++k) {
      const double t = 0.1 * n + k;
      markers.push_back({k, -300 + 100.0 * k + 60 * std::sin(t), 50 * std::cos(1.3 * t),
                         1200 + 10.0 * k + 80 * std::sin(0.7 * t)});
    }
    ASSERT_TRUE(host.see(markers));
    for (int k = 0; k < 6; ++k) {
      const auto& record = host.data.last().records[k];
      ASSERT_EQ(record.id, k);
      const float y[3] = {record.x, record.y, record.z};
      if (n == 0) references[k].start(y);
      references[k].update(y);
      const PoseAnswer answer = host.pose(k);
      EXPECT_EQ(answer.id, k);
      for (int i = 0; i < 3; ++i) EXPECT_EQ(answer.raw[i], y[i]);
      expectState(answer, references[k]);
    }
  }
}

// The same for the three head filters: stamped packets feed them, and each record is answered by
// the filter that was fed with it. Beyond 1500 mm, where every mode filters.
TEST_P(FilterModeNoise, HeadFiltersFollowTheTextbookRecursion) {
  constexpr std::uint64_t kStateAsItIs = 1234;
  const Host host(0);
  ASSERT_TRUE(host.alg->SetFilterMode(0, GetParam().mode, nullptr));
  std::vector<ReferenceFilter> references(3, ReferenceFilter(GetParam().noise));
  for (int n = 0; n < 40; ++n) {
    std::vector<Marker> markers;
    for (int k = 0; k < 3; ++k) {
      const double t = 0.1 * n + k;
      markers.push_back({k, -200 + 200.0 * k + 60 * std::sin(t), 50 * std::cos(1.3 * t),
                         1700 + 10.0 * k + 80 * std::sin(0.7 * t)});
    }
    ASSERT_TRUE(host.seeAt(static_cast<std::uint32_t>(11111 * n), markers));
    for (int k = 0; k < 3; ++k) {
      const auto& record = host.data.last().records[k];
      ASSERT_EQ(record.id, k);
      const float y[3] = {record.x, record.y, record.z};
      if (n == 0) references[k].start(y);
      references[k].update(y);
      const PoseAnswer answer = host.pose(k, kStateAsItIs);
      EXPECT_EQ(answer.id, k);
      for (int i = 0; i < 3; ++i) EXPECT_EQ(answer.raw[i], y[i]);
      expectState(answer, references[k]);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, FilterModeNoise,
                         testing::Values(ModeAndNoise{0, kSmallNoise}, ModeAndNoise{1, kLargeNoise},
                                         ModeAndNoise{2, kSmallNoise},
                                         ModeAndNoise{-2, kSmallNoise}));

TEST(FilterMode, FirstBlockAfterSwitchingOnStartsEveryPresentObject) {
  const Host host(2);
  host.see({{0, 0, 0, 1000}, {5, 100, 0, 1000}});
  host.see({{0, 10, 0, 1000}, {5, 110, 0, 1000}});
  ASSERT_TRUE(host.alg->SetFilterMode(0, 1, nullptr));
  host.see({{0, 20, 7, 1000}, {5, 120, 9, 1000}});
  for (const int k : {0, 5}) {
    const PoseAnswer answer = host.pose(k);
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(answer.filtered[i], answer.raw[i], kSingle);
      EXPECT_NEAR(answer.rate[i], 0, kSingle);
    }
  }
}

// A filter that was built but has seen no block knows no position: a visible object must not jump
// to the origin when its host switches the mode.
TEST(FilterMode, BuiltFilterAnswersAsMeasuredBeforeItsFirstBlock) {
  for (const int mode : {0, 1}) {
    const Host host(2);
    host.see({{1, 30, 20, 1000}});
    ASSERT_TRUE(host.alg->SetFilterMode(0, mode, nullptr));
    const PoseAnswer answer = host.pose(1);
    EXPECT_EQ(answer.id, 1);
    EXPECT_NEAR(answer.raw[0], 30, 1e-3);
    EXPECT_NEAR(answer.raw[2], -1000, 1e-3);
    EXPECT_TRUE(unfiltered(answer)) << "mode " << mode;
  }
}

TEST(FilterMode, BuiltHeadFilterAnswersAsMeasuredBeforeItsFirstBlock) {
  for (const int product : {0, 1}) {
    const Host host(product);
    ASSERT_TRUE(host.alg->SetFilterMode(0, 1, nullptr));
    host.seeAt(1000000, {{0, 30, 20, 1000}, {1, -30, 20, 1000}, {2, 30, -200, 1000}});
    ASSERT_TRUE(host.alg->SetFilterMode(0, 1, nullptr)) << "builds them anew";
    for (int k = 0; k < 3; ++k) {
      // Event 2: with the reserved stamp, and with one that asks for 50 ms ahead.
      for (const std::uint64_t stamp : {std::uint64_t{1234}, std::uint64_t{1050000}}) {
        const PoseAnswer answer = host.pose(k, stamp);
        EXPECT_EQ(answer.id, k);
        EXPECT_NE(answer.raw[2], 0.0f);
        EXPECT_TRUE(unfiltered(answer)) << "event " << k << ", stamp " << stamp;
      }
    }
  }
}

TEST(FilterMode, FilterStartsAgainAfterAnAbsenceOfOneBlock) {
  const Host host(2);
  ASSERT_TRUE(host.alg->SetFilterMode(0, 1, nullptr));
  for (int n = 0; n < 10; ++n) host.see({{0, 10.0 * n, 0, 1000}, {1, 10.0 * n, 100, 1000}});
  host.see({{1, 100, 100, 1000}});
  host.see({{0, 110, 0, 1000}, {1, 110, 100, 1000}});
  const PoseAnswer restarted = host.pose(0);
  EXPECT_NEAR(restarted.filtered[0], 110, 1e-3);
  EXPECT_NEAR(restarted.rate[0], 0, kSingle);
  EXPECT_LT(host.pose(1).filtered[0], 105) << "this one was there all the time, and lags";
}

TEST(FilterMode, HeadFilterStartsAgainAfterAnAbsenceOfOneBlock) {
  const Host host(0);
  ASSERT_TRUE(host.alg->SetFilterMode(0, 1, nullptr));
  for (int n = 0; n < 10; ++n) {
    host.seeAt(n, {{0, 10.0 * n, 0, 1000}, {1, 10.0 * n, 100, 1000}});
  }
  host.seeAt(10, {{1, 100, 100, 1000}});
  host.seeAt(11, {{0, 110, 0, 1000}, {1, 110, 100, 1000}});
  EXPECT_NEAR(host.pose(0).filtered[0], 110, 1e-3);
  EXPECT_LT(host.pose(1).filtered[0], 105);
}

// Each framing feeds its own filters only.
TEST(FilterMode, PacketsWithAndWithoutStampFeedDifferentFilters) {
  const Host marker(2);
  ASSERT_TRUE(marker.alg->SetFilterMode(0, 1, nullptr));
  for (int n = 0; n < 5; ++n) marker.seeAt(n, {{0, 10.0 * n, 0, 1000}});
  const PoseAnswer answer = marker.pose(0);
  EXPECT_EQ(answer.id, 0) << "bridged: no marker filter has seen the object";
  EXPECT_NE(answer.raw[2], 0.0f);
  EXPECT_TRUE(unfiltered(answer)) << "built, never started";

  const Host head(0);
  ASSERT_TRUE(head.alg->SetFilterMode(0, 1, nullptr));
  head.seeAt(5, {});
  for (int n = 0; n < 5; ++n) head.see({{0, 10.0 * n, 0, 1000}});
  EXPECT_EQ(head.pose(0).id, -1);
}

// Setting the mode again in the middle of a stream starts the head filters from their next
// measurement ...
TEST(FilterMode, SetInMidStreamStartsHeadFiltersFromTheNextBlock) {
  const Host host(0);
  ASSERT_TRUE(host.alg->SetFilterMode(0, 1, nullptr));
  for (int n = 0; n < 10; ++n) host.seeAt(n, {{0, 10.0 * n, 0, 1600}});
  ASSERT_TRUE(host.alg->SetFilterMode(0, 1, nullptr));
  host.seeAt(10, {{0, 100, 0, 1600}});
  const PoseAnswer answer = host.pose(0);
  EXPECT_EQ(answer.id, 0);
  EXPECT_NEAR(answer.filtered[0], 100, 1e-3);
  EXPECT_NEAR(answer.filtered[2], -1600, 1e-3);
}

// ... but not the marker filters, whose objects were there in the block before: the new filter
// takes its first step from zero. With P0 = 0 the predicted covariance is the process noise, so the
// gain is 1e-5 / (1e-5 + r), the same on every axis, and that of the rate is 0.
TEST_P(FilterModeNoise, SetInMidStreamLetsMarkerFiltersClimbFromZero) {
  const Host host(2);
  ASSERT_TRUE(host.alg->SetFilterMode(0, GetParam().mode, nullptr));
  for (int n = 0; n < 10; ++n) host.see({{0, 10.0 * n, 0, 1600}});
  ASSERT_TRUE(host.alg->SetFilterMode(0, GetParam().mode, nullptr));
  host.see({{0, 100, 0, 1600}});
  const double gain = 1e-5 / (1e-5 + GetParam().noise);  // 10/11 or 1/11
  const PoseAnswer answer = host.pose(0);
  EXPECT_NEAR(answer.filtered[0], 100 * gain, 1e-3);
  EXPECT_NEAR(answer.filtered[2], -1600 * gain, 1e-3);
  EXPECT_NEAR(answer.rate[2], 0, kSingle);

  // One block of absence, and it starts from where the object is.
  host.see({{1, 100, 0, 1600}});
  host.see({{0, 100, 0, 1600}});
  EXPECT_NEAR(host.pose(0).filtered[2], -1600, 1e-3);
}

// While filtering is off the remembered ids stand still: an object that was filtered before is
// still taken for present when filtering comes back, though it was away in between.
TEST(FilterMode, SwitchingOffKeepsTheMarkersRememberedIds) {
  const Host host(2);
  ASSERT_TRUE(host.alg->SetFilterMode(0, 0, nullptr));
  host.see({{0, 0, 0, 1100}});
  ASSERT_TRUE(host.alg->SetFilterMode(0, -1, nullptr));
  EXPECT_TRUE(unfiltered(host.pose(0)));
  host.see({{1, 0, 0, 1100}});
  EXPECT_EQ(host.pose(0).id, 0) << "ids are not refreshed while filtering is off";
  ASSERT_TRUE(host.alg->SetFilterMode(0, 0, nullptr));
  host.see({{0, 0, 0, 1100}});
  EXPECT_NEAR(host.pose(0).filtered[2], -1000, 1e-3) << "1100 * 10/11: not started anew";
}

}  // namespace
