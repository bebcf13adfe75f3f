// The rules of the interface that the public header states, against a list of their own.
#include <alg_factory/api/AlgFactory.h>

#include <climits>

#include <gtest/gtest.h>

namespace {

using namespace algorithm;

TEST(Constants, NumberTheStreamTypesAndEventsAsTheInterfaceDoes) {
  EXPECT_EQ(kPacket, 0);
  EXPECT_EQ(kAuxVector, 1);
  EXPECT_EQ(kStampedPacket, 2);
  EXPECT_EQ(kInertialA, 3);
  EXPECT_EQ(kInertialB, 4);
  EXPECT_EQ(kSideHint, 5);
  EXPECT_EQ(kPose0, 0);
  EXPECT_EQ(kPose5, 5);
  EXPECT_EQ(kHeadingExchange, 16);
  EXPECT_EQ(kFilterOff, -1);
  EXPECT_EQ(kFilterSmooth, 1);
  EXPECT_EQ(kSideFirst, 1);
  EXPECT_EQ(kSideSecond, 2);
  EXPECT_EQ(kFilterStateStamp, 1234u);
}

TEST(Constants, KnowOnlyTheTypesThatTheInterfaceTakes) {
  for (const int value : {INT_MIN, -1, 3, 6, 7, 15, 17, INT_MAX}) {
    EXPECT_FALSE(isProductType(value)) << value;
    EXPECT_EQ(isStreamType(value), value == 3) << value;
    EXPECT_EQ(isEvent(value), value == 3) << value;
  }
  EXPECT_TRUE(isProductType(0));
  EXPECT_TRUE(isProductType(2));
  EXPECT_TRUE(isStreamType(0));
  EXPECT_TRUE(isStreamType(5));
  EXPECT_TRUE(isEvent(0));
  EXPECT_TRUE(isEvent(5));
  EXPECT_TRUE(isEvent(16));
  EXPECT_FALSE(isPoseEvent(16));
}

TEST(Constants, GiveEveryProductItsObjectsAndTheirMarkers) {
  EXPECT_EQ(objectCount(0), 3);
  EXPECT_EQ(objectCount(1), 3);
  EXPECT_EQ(objectCount(2), 6);
  EXPECT_EQ(objectCount(3), 0);
  EXPECT_EQ(objectCount(-1), 0);
  EXPECT_EQ(markerCount(0, 2), 1);
  EXPECT_EQ(markerCount(1, 1), 1);
  EXPECT_EQ(markerCount(1, 2), 2);
  EXPECT_EQ(markerCount(1, 3), 0);
  EXPECT_EQ(markerCount(2, 5), 1);
  EXPECT_EQ(markerCount(2, 6), 0);
  EXPECT_EQ(markerCount(2, -1), 0);
  EXPECT_EQ(markerCount(7, 0), 0);
}

TEST(Constants, SendTheFirstThreeEventsOfProductsWithHeadsToStampedPackets) {
  for (const int product : {0, 1}) {
    EXPECT_TRUE(hasHeads(product));
    EXPECT_TRUE(isHeadEvent(product, 0));
    EXPECT_TRUE(isHeadEvent(product, 2));
    EXPECT_FALSE(isHeadEvent(product, 3));
    EXPECT_FALSE(readsStamp(product, 1));
    EXPECT_TRUE(readsStamp(product, 2));
  }
  EXPECT_FALSE(hasHeads(2));
  EXPECT_FALSE(isHeadEvent(2, 0));
  EXPECT_FALSE(readsStamp(2, 2));
  EXPECT_FALSE(readsStamp(3, 2));
}

TEST(Constants, StateTheBytesThatAreReadAndWritten) {
  EXPECT_EQ(leastPayloadSize(0), 0u);
  EXPECT_EQ(leastPayloadSize(1), 56u);
  EXPECT_EQ(leastPayloadSize(2), 4u);
  EXPECT_EQ(leastPayloadSize(3), 56u);
  EXPECT_EQ(leastPayloadSize(4), 56u);
  EXPECT_EQ(leastPayloadSize(5), 4u);
  EXPECT_EQ(leastPayloadSize(6), 0u);
  EXPECT_TRUE(isPacketStream(0));
  EXPECT_TRUE(isPacketStream(2));
  EXPECT_FALSE(isPacketStream(1));

  EXPECT_EQ(eventInputSize(1, 2), 8u);
  EXPECT_EQ(eventInputSize(2, 2), 0u);
  EXPECT_EQ(eventInputSize(0, 0), 0u);
  EXPECT_EQ(eventInputSize(2, 16), 24u);
  EXPECT_EQ(eventAnswerSize(0), 52u);
  EXPECT_EQ(eventAnswerSize(5), 52u);
  EXPECT_EQ(eventAnswerSize(16), 48u);
  EXPECT_EQ(eventAnswerSize(6), 0u);
}

}  // namespace
