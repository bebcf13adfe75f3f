#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <ostream>
#include <utility>
#include <vector>

#include <tests/support/Host.h>

namespace {

using algorithm::HeadingAnswer;
using algorithm::OrientationSample;
using algorithm::PoseAnswer;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing_support::Bytes;
using testing_support::Host;
using testing_support::kExact;
using testing_support::kSmall;
using testing_support::Marker;
using testing_support::unfiltered;

bool sameBytes(const PoseAnswer& a, const PoseAnswer& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(HandleEvent, RefusesUnknownEventsWithOneMessage) {
  Host host(0);
  std::vector<int> events = {
      -1, -16, 17, 32, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};
  for (int event = 6; event < 16; ++event) events.push_back(event);
  for (const int event : events) {
    host.log.lines.clear();
    unsigned char output[64];
    std::memset(output, 0xCC, sizeof output);
    EXPECT_FALSE(host.alg->HandleEvent(event, output, output)) << event;
    EXPECT_THAT(host.log.lines, ElementsAre(Pair(4, "alg: unknown event type!\n"))) << event;
    EXPECT_THAT(output, Each(0xCC)) << event;
    // The event is looked at before the buffers.
    EXPECT_FALSE(host.alg->HandleEvent(event, nullptr, nullptr)) << event;
    EXPECT_EQ(host.log.lines.size(), 2u) << event;
  }
}

TEST(HandleEvent, UnknownEventsAreTheSameForAllProductTypes) {
  for (const int productType : {1, 2, 3}) {
    Host host(productType);
    host.log.lines.clear();
    EXPECT_FALSE(host.alg->HandleEvent(7, nullptr, nullptr));
    EXPECT_THAT(host.log.texts(), ElementsAre("alg: unknown event type!\n"));
  }
}

TEST(HandleEvent, RefusesANullOutputSilently) {
  const std::uint64_t input[3] = {};
  for (const int productType : {0, 1, 2, 3}) {
    Host host(productType);
    host.log.lines.clear();
    for (const int event : {0, 1, 2, 3, 4, 5, 16}) {
      EXPECT_FALSE(host.alg->HandleEvent(event, input, nullptr)) << event;
    }
    EXPECT_THAT(host.log.lines, IsEmpty());
  }
}

TEST(HandleEvent, RefusesANullInputWhereOneIsRead) {
  unsigned char output[64];
  for (const int productType : {0, 1}) {
    Host host(productType);
    std::memset(output, 0xCC, sizeof output);
    EXPECT_FALSE(host.alg->HandleEvent(2, nullptr, output));
    EXPECT_FALSE(host.alg->HandleEvent(16, nullptr, output));
    EXPECT_THAT(output, Each(0xCC));
    for (const int event : {0, 1, 3, 4, 5}) {
      EXPECT_TRUE(host.alg->HandleEvent(event, nullptr, output)) << event;
    }
    EXPECT_THAT(host.log.lines, IsEmpty());
  }
  for (const int productType : {2, 3}) {
    const Host host(productType);
    EXPECT_TRUE(host.alg->HandleEvent(2, nullptr, output));
    EXPECT_FALSE(host.alg->HandleEvent(16, nullptr, output));
  }
}

TEST(HandleEvent, RefusedQueriesBridgeNothing) {
  const Host host(2);
  host.alg->SetFilterMode(0, 0, nullptr);
  host.see({{0, 0, 0, 1000}, {1, 100, 0, 1000}});
  for (int n = 0; n < 200; ++n) {
    host.see({{1, 100, 0, 1000}});
    host.alg->HandleEvent(0, nullptr, nullptr);
  }
  EXPECT_EQ(host.pose(0).id, 0) << "none of the 90 is used up";
}

TEST(HandleEvent, WritesExactlyTheAnswer) {
  const Host host(2);
  host.see({{0, 0, 0, 1000}});
  unsigned char output[64];
  const OrientationSample sample;
  for (const auto& [event, size] : {std::pair{0, 52}, std::pair{5, 52}, std::pair{16, 48}}) {
    std::memset(output, 0xCC, sizeof output);
    ASSERT_TRUE(host.alg->HandleEvent(event, &sample, output));
    for (int i = size; i < 64; ++i) EXPECT_EQ(output[i], 0xCC) << event << " byte " << i;
    EXPECT_NE(output[size - 1], 0xCC);
  }
}

TEST(HandleEvent, BuffersNeedNotBeAligned) {
  const Host host(0);
  host.alg->SetFilterMode(0, 1, nullptr);
  for (int n = 0; n < 3; ++n) host.seeAt(1000, {{2, 10.0 * n, 0, 1000}});
  alignas(8) unsigned char bytes[128];
  const std::uint64_t stamp = 1234;
  std::memcpy(bytes + 3, &stamp, sizeof stamp);
  ASSERT_TRUE(host.alg->HandleEvent(2, bytes + 3, bytes + 17));
  PoseAnswer answer;
  std::memcpy(&answer, bytes + 17, sizeof answer);
  EXPECT_TRUE(sameBytes(answer, host.pose(2, 1234)));

  const OrientationSample sample{{0, 0, 0, 1}, 5};
  std::memcpy(bytes + 1, &sample, sizeof sample);
  ASSERT_TRUE(host.alg->HandleEvent(16, bytes + 1, bytes + 33));
  HeadingAnswer heading;
  std::memcpy(&heading, bytes + 33, sizeof heading);
  EXPECT_EQ(heading.value, 5u);
}

// ---- Marker records: product type 2, and events 3 to 5 on every product type.

TEST(MarkerQuery, AnswersThePositionOfTheLatestBlock) {
  const Host host(2);
  host.alg->SetFilterMode(0, 0, nullptr);
  std::vector<Marker> markers;
  for (int k = 0; k < 6; ++k) markers.push_back({k, -300 + 100.0 * k, 10.0 * k, 1000});
  host.see(markers);
  for (int k = 0; k < 6; ++k) {
    const PoseAnswer answer = host.pose(k);
    EXPECT_EQ(answer.id, k);
    EXPECT_NEAR(answer.raw[0], -300 + 100 * k, kExact);
    EXPECT_NEAR(answer.raw[1], -10 * k, kExact);
    EXPECT_NEAR(answer.raw[2], -1000, kExact);
  }
}

// An object that vanished is reported for 90 queries, the 91st finds it gone.
TEST(MarkerQuery, BridgesAnAbsenceForNinetyQueries) {
  const Host host(2);
  host.alg->SetFilterMode(0, 0, nullptr);
  const std::vector<Marker> both = {{4, 0, 0, 1000}, {1, 100, 0, 1000}};
  host.see(both);
  ASSERT_EQ(host.pose(4).id, 4);
  for (int query = 1; query <= 95; ++query) {
    host.see({{1, 100, 0, 1000}});
    ASSERT_EQ(host.data.last().records[4].id, -1);
    EXPECT_EQ(host.pose(4).id, query <= 90 ? 4 : -1) << "query " << query;
  }
  // Seen again and queried, it has 90 more. Seen alone does not count: the query clears the count.
  host.see(both);
  host.see({{1, 100, 0, 1000}});
  EXPECT_EQ(host.pose(4).id, -1);
  host.see(both);
  EXPECT_EQ(host.pose(4).id, 4);
  for (int query = 1; query <= 91; ++query) {
    host.see({{1, 100, 0, 1000}});
    EXPECT_EQ(host.pose(4).id, query <= 90 ? 4 : -1) << "query " << query;
  }
}

TEST(MarkerQuery, CountsTheMissesOfEachRecordOnItsOwn) {
  const Host host(2);
  host.alg->SetFilterMode(0, 0, nullptr);
  for (int query = 1; query <= 91; ++query) {
    host.see({{1, 100, 0, 1000}});
    const int id = host.pose(0).id;
    if (query <= 60) {
      EXPECT_EQ(host.pose(3).id, 3);
    }
    EXPECT_EQ(id, query <= 90 ? 0 : -1);
  }
  EXPECT_EQ(host.pose(0).id, -1);
  EXPECT_EQ(host.pose(3).id, 3) << "30 left";
  EXPECT_EQ(host.pose(5).id, 5) << "90 left";
}

// Two queries of one block: the first bridges, the second takes the bridged id for a sighting and
// clears the count. A host that asks twice never loses the object.
TEST(MarkerQuery, SecondQueryOfABlockClearsTheCount) {
  const Host host(2);
  host.alg->SetFilterMode(0, 0, nullptr);
  host.see({{0, 0, 0, 1000}, {1, 100, 0, 1000}});
  for (int block = 0; block < 200; ++block) {
    host.see({{1, 100, 0, 1000}});
    ASSERT_EQ(host.pose(0).id, 0) << block;
    ASSERT_EQ(host.pose(0).id, 0) << block;
  }
}

// Without filtering no block refreshes the ids: the first query bridges, and from then on the
// record is answered whether its object is there or not.
TEST(MarkerQuery, WithoutFilteringAnswersPresentOrNot) {
  const Host host(2);
  EXPECT_EQ(host.pose(3).id, 3) << "before any block";
  for (int block = 0; block < 200; ++block) {
    host.see({{0, 0, 0, 1000}});
    ASSERT_EQ(host.pose(3).id, 3) << block;
  }
  host.see({{3, 70, 0, 1000}});
  EXPECT_NEAR(host.pose(3).raw[0], 70, kExact);
  EXPECT_TRUE(unfiltered(host.pose(3)));
}

TEST(MarkerQuery, BridgedAnswerHoldsTheLastPosition) {
  const Host host(2);
  host.alg->SetFilterMode(0, 1, nullptr);
  for (int n = 0; n < 5; ++n) host.see({{0, 10.0 * n, 20, 1000}});
  const PoseAnswer seen = host.pose(0);
  host.see({{1, 100, 0, 1000}});
  EXPECT_TRUE(sameBytes(host.pose(0), seen)) << "neither the record nor the filter has moved";
}

TEST(MarkerQuery, EventsThreeToFiveReadMarkersOnEveryProductType) {
  for (const int productType : {0, 1, 2}) {
    const Host host(productType);
    host.alg->SetFilterMode(0, 0, nullptr);
    for (const int k : {3, 4, 5}) EXPECT_EQ(host.pose(k).id, k) << "bridged";
  }
  const Host host(0);
  for (int query = 1; query <= 91; ++query) {
    host.see({{0, 0, 0, 1000}});
    EXPECT_EQ(host.pose(3).id, query <= 90 ? 3 : -1) << query;
  }
}

// The near limit belongs to heads: a marker is filtered at any depth.
TEST(MarkerQuery, FiltersNearObjectsToo) {
  const Host host(2);
  host.alg->SetFilterMode(0, 0, nullptr);
  for (int n = 0; n < 5; ++n) host.see({{1, 10.0 * n, 0, 700}});
  EXPECT_FALSE(unfiltered(host.pose(1)));
  EXPECT_GT(host.pose(1).rate[0], 0);
}

TEST(MarkerQuery, EventTwoOfProductTypeTwoReadsNoStamp) {
  const Host host(2);
  host.alg->SetFilterMode(0, 1, nullptr);
  for (int n = 0; n < 5; ++n) host.see({{2, 10.0 * n, 0, 1000}});
  const PoseAnswer answer = host.pose(2, 1234);
  EXPECT_TRUE(sameBytes(answer, host.pose(2, 50000)));
  EXPECT_FALSE(unfiltered(answer));
}

// ---- Head records: events 0 to 2 on product types 0 and 1.

TEST(HeadQuery, AbsentHeadHasNoIdAndIsNotBridged) {
  for (const int productType : {0, 1}) {
    const Host host(productType);
    host.alg->SetFilterMode(0, 0, nullptr);
    for (const int k : {0, 1, 2}) EXPECT_EQ(host.pose(k).id, -1) << k;
    host.seeAt(1, {{0, 0, 0, 1000}, {2, 0, 100, 1000}});
    EXPECT_EQ(host.pose(0).id, 0);
    EXPECT_EQ(host.pose(1).id, -1);
    EXPECT_EQ(host.pose(2).id, 2);
    host.seeAt(2, {{2, 0, 100, 1000}});
    EXPECT_EQ(host.pose(0).id, -1);
    EXPECT_EQ(host.pose(2).id, 2);
    host.seeAt(3, {});
  }
}

// What an answer without object carries behind its id is left over from the answer before it,
// whichever record that was of.
TEST(HeadQuery, AnswerWithoutObjectCarriesTheRestOfTheAnswerBefore) {
  const Host host(0);
  host.alg->SetFilterMode(0, 1, nullptr);
  for (int n = 0; n < 3; ++n) host.seeAt(n, {{0, 10.0 * n, 20, 1000}, {2, 0, 10.0 * n, 1100}});
  PoseAnswer zero = host.pose(0);
  zero.id = -1;
  EXPECT_TRUE(sameBytes(host.pose(1), zero));
  PoseAnswer two = host.pose(2, 1234);
  two.id = -1;
  EXPECT_FALSE(sameBytes(two, zero));
  EXPECT_TRUE(sameBytes(host.pose(1), two));
  host.seeAt(9, {{0, 20, 20, 1000}});
  zero = host.pose(0);
  zero.id = -1;
  EXPECT_TRUE(sameBytes(host.pose(2, 1234), zero)) << "event 2 with its object gone";
  EXPECT_TRUE(sameBytes(host.pose(2, 59), zero));
}

TEST(MarkerQuery, AnswerWithoutObjectCarriesTheRestOfTheAnswerBefore) {
  const Host host(2);
  host.alg->SetFilterMode(0, 1, nullptr);
  for (int query = 0; query < 90; ++query) {
    host.see({{0, 10, 20, 1000}});
    host.pose(1);
  }
  host.see({{0, 10, 20, 1000}});
  PoseAnswer zero = host.pose(0);
  zero.id = -1;
  EXPECT_TRUE(sameBytes(host.pose(1), zero));
}

struct DepthCase {
  int mode;
  double depth;
  bool filters;

  friend std::ostream& operator<<(std::ostream& out, const DepthCase& c) {
    return out << "mode " << c.mode << " at " << c.depth << " mm";
  }
};

class HeadQueryDepth : public testing::TestWithParam<DepthCase> {};

// In mode 0 (and in any but 1) a head nearer than 1500 mm is answered unfiltered. At 1500 exactly
// the filter answers.
TEST_P(HeadQueryDepth, DecidesWhetherTheFilterAnswers) {
  for (const int record : {0, 1}) {
    const Host host(record);  // product types 0 and 1
    host.alg->SetFilterMode(0, GetParam().mode, nullptr);
    host.seeAt(0, {});
    for (const double behind : {20, 10, 0}) {
      host.seeAt(1, {{record, 0, 0, GetParam().depth - behind}});
    }
    const PoseAnswer answer = host.pose(record);
    ASSERT_EQ(answer.id, record);
    ASSERT_EQ(answer.raw[2], static_cast<float>(-GetParam().depth));
    EXPECT_EQ(unfiltered(answer), !GetParam().filters);
    if (GetParam().filters) {
      // It lags behind the object, which goes away from the camera (towards negative z).
      EXPECT_GT(answer.filtered[2], answer.raw[2] + 0.1);
      EXPECT_LT(answer.rate[2], 0);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, HeadQueryDepth,
                         testing::Values(DepthCase{0, 1200, false}, DepthCase{0, 1499.875, false},
                                         DepthCase{0, 1500, true}, DepthCase{0, 1500.125, true},
                                         DepthCase{0, 1600, true}, DepthCase{1, 1200, true},
                                         DepthCase{1, 1600, true}, DepthCase{2, 1200, false},
                                         DepthCase{2, 1600, true}, DepthCase{-2, 1200, false}));

}  // namespace
