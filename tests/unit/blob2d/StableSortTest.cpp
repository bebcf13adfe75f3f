#include <alg_factory/blob2d/StableSort.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

namespace {

using algorithm::stableSort;
using testing::ElementsAre;
using testing::IsEmpty;

struct Disc {
  int diameter;
  int place;
};

std::vector<std::pair<int, int>> pairsOf(const std::vector<Disc>& discs) {
  std::vector<std::pair<int, int>> pairs;
  for (const Disc& disc : discs) pairs.emplace_back(disc.diameter, disc.place);
  return pairs;
}

TEST(StableSort, SortsByTheGivenOrder) {
  std::vector<int> values{3, 1, 2, 5, 4};
  stableSort(values.begin(), values.end(), [](int a, int b) { return a < b; });
  EXPECT_THAT(values, ElementsAre(1, 2, 3, 4, 5));
}

TEST(StableSort, AcceptsEmptyAndSingleRanges) {
  std::vector<int> values;
  stableSort(values.begin(), values.end(), [](int a, int b) { return a < b; });
  EXPECT_THAT(values, IsEmpty());
  values = {7};
  stableSort(values.begin(), values.end(), [](int a, int b) { return a < b; });
  EXPECT_THAT(values, ElementsAre(7));
}

TEST(StableSort, LeavesTheRestOfTheContainerAlone) {
  std::vector<int> values{9, 3, 1, 2, 0};
  stableSort(values.begin() + 1, values.end() - 1, [](int a, int b) { return a < b; });
  EXPECT_THAT(values, ElementsAre(9, 1, 2, 3, 0));
}

TEST(StableSort, EqualsKeepTheirOrder) {
  constexpr unsigned kSeed = 17;
  SCOPED_TRACE(testing::Message() << "seed " << kSeed);
  std::mt19937 random(kSeed);
  std::vector<Disc> discs;
  for (int i = 0; i < 200; ++i) discs.push_back({static_cast<int>(random() % 5) * 2, i});
  // With the place as second key the order is total, so any sort gives the one right answer.
  auto expected = pairsOf(discs);
  std::sort(expected.begin(), expected.end(), [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first > b.first : a.second < b.second;
  });
  stableSort(discs.begin(), discs.end(),
             [](const Disc& a, const Disc& b) { return a.diameter > b.diameter; });
  EXPECT_EQ(pairsOf(discs), expected);
}

}  // namespace
