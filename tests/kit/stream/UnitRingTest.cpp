#include <alg_kit/stream/UnitRing.h>
#include <tests/support/StreamedUnits.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

using stream::Context;
using stream::UnitRing;

TEST(UnitRing, GivesUnitsInOrderWithWhatWasBefore) {
  UnitRing ring(4);
  testing_support::UnitMaker units;
  Context context;
  for (int i = 0; i < 3; ++i) {
    const session::Unit unit = units.block({i});
    ring.put(unit, context);
    context.follow(unit);
  }
  session::Unit unit;
  Context before;
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(ring.take(unit, before));
    EXPECT_EQ(unit[0].call.index, i);
    EXPECT_EQ(before.packets, i);
    EXPECT_EQ(unit[0].blocks[0].block.records[i].id, i);
  }
  EXPECT_FALSE(ring.take(unit, before));
  EXPECT_EQ(ring.dropped(), 0);
}

TEST(UnitRing, DropsTheOldestWhereThereIsNoRoom) {
  UnitRing ring(4);
  testing_support::UnitMaker units;
  for (int i = 0; i < 10; ++i) ring.put(units.block({0}), {});
  EXPECT_EQ(ring.dropped(), 6);
  session::Unit unit;
  Context before;
  for (int i = 6; i < 10; ++i) {
    ASSERT_TRUE(ring.take(unit, before));
    EXPECT_EQ(unit[0].call.index, i);
  }
  EXPECT_FALSE(ring.take(unit, before));
}

TEST(UnitRing, DropsAUnitThatIsTooLarge) {
  UnitRing ring(4);
  testing_support::UnitMaker units;
  ring.put(units.block({0}, session::Bytes(UnitRing::kLargestUnit)), {});
  session::Unit unit;
  Context before;
  EXPECT_FALSE(ring.take(unit, before));
  EXPECT_EQ(ring.dropped(), 1);
}

TEST(UnitRing, BetweenTwoThreadsEveryUnitIsTakenWholeOrCounted) {
  constexpr int kUnits = 100000;
  UnitRing ring(8);
  std::atomic<bool> done{false};
  std::int64_t taken = 0, last = -1;
  bool whole = true;
  std::thread reader([&] {
    session::Unit unit;
    Context before;
    for (bool more = true; more;) {
      more = !done;
      while (ring.take(unit, before)) {
        ++taken;
        whole = whole && unit[0].call.index > last && before.calls == unit[0].call.index &&
                unit[0].call.payload.size() == static_cast<std::size_t>(before.calls % 50) &&
                (unit[0].call.payload.empty() ||
                 unit[0].call.payload.back() == static_cast<std::uint8_t>(before.calls));
        last = unit[0].call.index;
      }
    }
  });
  session::Unit unit;
  unit.append();
  Context context;
  for (int i = 0; i < kUnits; ++i) {
    unit[0].call.index = i;
    unit[0].call.payload.assign(static_cast<std::size_t>(i % 50), static_cast<std::uint8_t>(i));
    context.calls = i;
    ring.put(unit, context);
  }
  done = true;
  reader.join();
  EXPECT_TRUE(whole);
  EXPECT_GT(taken, 0);
  EXPECT_EQ(taken + ring.dropped(), kUnits);
}

}  // namespace
