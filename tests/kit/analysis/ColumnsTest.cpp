#include <alg_kit/analysis/Columns.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

using analysis::Columns;
using testing::DoubleEq;
using testing::ElementsAre;
using testing::IsNan;

TEST(ColumnsTest, FewPacketsGetAColumnEachAndPausesAnEmptyOne) {
  Columns columns(1, 1, 10);
  const double times[] = {0, 0.1, 0.2, 5.2, 5.3};
  for (int n = 0; n < 5; ++n) {
    columns.begin(times[n], n, 4 * n);
    if (n != 1) columns.add(0, n + 1);
    columns.count(0);
  }
  columns.breakAtPauses();
  EXPECT_EQ(columns.width(), 0);
  EXPECT_THAT(columns.times(), ElementsAre(0, 0.1, 0.2, DoubleEq(2.7), 5.2, 5.3));
  EXPECT_THAT(columns.packets(), ElementsAre(0, 1, 2, -1, 3, 4));
  EXPECT_THAT(columns.calls(), ElementsAre(0, 4, 8, -1, 12, 16));
  EXPECT_THAT(columns.envelope(0).low, ElementsAre(1, IsNan(), 3, IsNan(), 4, 5));
  EXPECT_THAT(columns.counts(0), ElementsAre(1, 1, 1, 0, 1, 1));
}

TEST(ColumnsTest, ManyPacketsShareColumnsThatHideNothing) {
  constexpr std::size_t kMost = 200;
  std::mt19937 random(3);
  std::uniform_real_distribution<float> any(-1, 1);
  Columns columns(1, 1, kMost);
  std::vector<double> times;
  std::vector<float> values;
  for (int n = 0; n < 10007; ++n) {
    times.push_back(7 + n / 90.0);
    values.push_back(n == 5003 ? 1000 : any(random));
    columns.begin(times.back(), n, 2 * n);
    columns.add(0, static_cast<double>(values.back()));
    columns.count(0);
  }
  const auto& envelope = columns.envelope(0);
  const std::size_t count = columns.times().size();
  EXPECT_GT(count, kMost / 2 - 2);
  EXPECT_LE(count, kMost);
  EXPECT_EQ(*std::max_element(envelope.high.begin(), envelope.high.end()), 1000);
  std::int64_t sum = 0;
  for (std::size_t i = 0; i < count; ++i) {
    // Numbers tell which packets a column holds: those from its first to the next one's.
    const auto first = static_cast<std::size_t>(columns.packets()[i]);
    const std::size_t end =
        i + 1 < count ? static_cast<std::size_t>(columns.packets()[i + 1]) : values.size();
    EXPECT_EQ(columns.calls()[i], 2 * columns.packets()[i]);
    const auto [low, high] =
        std::minmax_element(values.begin() + static_cast<std::ptrdiff_t>(first),
                            values.begin() + static_cast<std::ptrdiff_t>(end));
    EXPECT_EQ(envelope.low[i], *low);
    EXPECT_EQ(envelope.high[i], *high);
    EXPECT_NEAR(times[first], columns.times()[i], columns.width() / 2 + 1e-9);
    sum += columns.counts(0)[i];
  }
  EXPECT_EQ(sum, 10007);
}

TEST(ColumnsTest, PacketsOfOneMomentAndOfDamagedTimesFit) {
  Columns columns(1, 1, 10);
  for (int n = 0; n < 50; ++n) {
    columns.begin(2, n, n);
    columns.count(0);
  }
  columns.begin(1e10, 50, 50);
  columns.count(0);
  EXPECT_LE(columns.times().size(), 10u);
  std::int64_t sum = 0;
  for (const auto count : columns.counts(0)) sum += count;
  EXPECT_EQ(sum, 51);
}

// Where each packet keeps a column of its own, and where columns are shared.
TEST(ColumnsTest, WhatIsKnownLaterGoesToThePacketsOwnColumn) {
  constexpr int kLate = 10;
  for (const int packetCount : {50, 1000}) {
    SCOPED_TRACE(packetCount);
    Columns columns(1, 1, 64), atOnce(1, 1, 64);
    std::vector<Columns::Packet> packets;
    const auto fill = [&](int n) {
      const std::size_t column = columns.columnOf(packets[static_cast<std::size_t>(n)]);
      columns.add(column, 0, n % 37);
      columns.count(column, 0);
    };
    for (int n = 0; n < packetCount; ++n) {
      const double time = 3 + n * 0.01 + (n > 700 ? 40 : 0);
      columns.begin(time, n, n);
      packets.push_back(columns.latest());
      atOnce.begin(time, n, n);
      atOnce.add(0, n % 37);
      atOnce.count(0);
      if (n >= kLate) fill(n - kLate);
    }
    for (int n = packetCount - kLate; n < packetCount; ++n) fill(n);
    EXPECT_EQ(columns.counts(0), atOnce.counts(0));
    EXPECT_THAT(columns.envelope(0).low,
                testing::Pointwise(testing::NanSensitiveFloatEq(), atOnce.envelope(0).low));
    EXPECT_THAT(columns.envelope(0).high,
                testing::Pointwise(testing::NanSensitiveFloatEq(), atOnce.envelope(0).high));
  }
}

}  // namespace
