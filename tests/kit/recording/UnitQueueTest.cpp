#include <alg_kit/recording/UnitQueue.h>

#include <gtest/gtest.h>

namespace {

using recording::memoryOf;
using recording::UnitQueue;

session::Unit unitOf(std::size_t payload) {
  session::Unit unit;
  unit.append().call.payload.resize(payload);
  return unit;
}

bool put(UnitQueue& queue, session::Unit unit) {
  return queue.put(unit, memoryOf(unit));
}

TEST(UnitQueue, HandsUnitsOnInOrderWithTheirStorage) {
  UnitQueue queue(4, 1 << 20);
  session::Unit one = unitOf(100), two = unitOf(200);
  const void* const storage = one.entries.data();
  ASSERT_TRUE(queue.put(one, memoryOf(one)));
  ASSERT_TRUE(queue.put(two, memoryOf(two)));
  EXPECT_EQ(memoryOf(one), 0u);
  session::Unit taken;
  ASSERT_TRUE(queue.take(taken));
  EXPECT_EQ(taken.entries.data(), storage);
  EXPECT_EQ(taken[0].call.payload.size(), 100u);
  taken = {};
  ASSERT_TRUE(queue.take(taken));
  EXPECT_EQ(taken[0].call.payload.size(), 200u);
  taken = {};
  EXPECT_FALSE(queue.take(taken));
}

TEST(UnitQueue, RefusesAUnitThatItsMemoryHasNoRoomForAndLeavesItWhole) {
  const std::size_t each = memoryOf(unitOf(1000));
  UnitQueue queue(8, 3 * each);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(put(queue, unitOf(1000)));
  session::Unit fourth = unitOf(1000);
  EXPECT_FALSE(queue.put(fourth, memoryOf(fourth)));
  EXPECT_EQ(fourth[0].call.payload.size(), 1000u);
}

TEST(UnitQueue, GivesBackTheRoomOfEveryUnitHoweverOftenItIsUsed) {
  const std::size_t each = memoryOf(unitOf(1000));
  UnitQueue queue(8, 3 * each);
  session::Unit unit;
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(put(queue, unitOf(1000)));
    ASSERT_TRUE(put(queue, unitOf(900)));
    for (int taken = 0; taken < 2; ++taken) {
      unit = {};
      ASSERT_TRUE(queue.take(unit));
    }
  }
  EXPECT_EQ(queue.size(), 0u);
  EXPECT_FALSE(queue.halfFull());
  EXPECT_EQ(queue.position(), 200u);
}

TEST(UnitQueue, IsHalfFullByUnitsOrByBytes) {
  UnitQueue byUnits(4, 1 << 20);
  ASSERT_TRUE(put(byUnits, unitOf(0)));
  EXPECT_FALSE(byUnits.halfFull());
  ASSERT_TRUE(put(byUnits, unitOf(0)));
  EXPECT_TRUE(byUnits.halfFull());
  UnitQueue byBytes(100, 2 * memoryOf(unitOf(1000)));
  ASSERT_TRUE(put(byBytes, unitOf(1000)));
  EXPECT_TRUE(byBytes.halfFull());
}

}  // namespace
