#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>

#include <tests/support/Host.h>

namespace {

using algorithm::AlgBase;
using algorithm::AlgFactory;
using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::BlockCollector;
using testing_support::createAndKeep;
using testing_support::Host;
using testing_support::RecordingLog;

TEST(AlgFactory, RefusesEveryTypeButZeroOneAndTwo) {
  EXPECT_EQ(createAndKeep(3), nullptr);
  EXPECT_EQ(createAndKeep(-1), nullptr);
  EXPECT_EQ(createAndKeep(std::numeric_limits<int>::max()), nullptr);
  EXPECT_EQ(createAndKeep(std::numeric_limits<int>::min()), nullptr);
}

TEST(AlgFactory, CreatesANewObjectEachTime) {
  AlgBase* const first = createAndKeep(0);
  AlgBase* const second = createAndKeep(1);
  AlgBase* const third = createAndKeep(2);
  AlgBase* const fourth = createAndKeep(0);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  ASSERT_NE(third, nullptr);
  EXPECT_NE(first, second);
  EXPECT_NE(second, third);
  EXPECT_NE(first, third);
  EXPECT_NE(first, fourth);
}

// The type given to the factory selects nothing: whatever it was, one pipeline runs, of the product
// given to Init.
TEST(AlgFactory, ObjectsShareOnePipeline) {
  AlgBase* const zero = createAndKeep(0);
  AlgBase* const one = createAndKeep(1);
  AlgBase* const two = createAndKeep(2);
  RecordingLog log;
  BlockCollector data;
  const auto calibration = testing_support::handCalibration();

  ASSERT_TRUE(zero->SetLogCallback(&log));
  ASSERT_TRUE(one->SetDataCallback(&data));
  ASSERT_TRUE(zero->Init(2, reinterpret_cast<const unsigned char*>(&calibration), 0));
  const auto packet = testing_support::packetOf({{5, 0, 0, 1000}});
  ASSERT_TRUE(two->InputStream(0, packet.data(), 0, static_cast<int>(packet.size())));

  ASSERT_EQ(data.blocks.size(), 1u);
  EXPECT_EQ(data.last().records[5].id, 5) << "the first object's Init chose six ids";
  EXPECT_FALSE(one->InputStream(77, packet.data(), 0, 1));
  EXPECT_EQ(log.lines.size(), 1u);
}

// The interface has no virtual destructor; compilers say so at the expression, not in unique_ptr.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"
#if defined(__clang__)
#pragma GCC diagnostic ignored "-Wdelete-abstract-non-virtual-dtor"
#endif
#endif
void destroy(AlgBase* alg) {
  delete alg;
}
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

// The allocation checker sees a deletion by another size or another allocator than the creation's.
TEST(AlgFactory, DeletingAnObjectLeavesThePipelineToTheOthers) {
  const Host host(2);
  AlgBase* const second = AlgFactory::CreateALG(1);
  ASSERT_TRUE(second->SetFilterMode(0, 0, nullptr));
  ASSERT_TRUE(host.see({{5, 0, 0, 1000}}));
  destroy(second);
  ASSERT_TRUE(host.see({{5, 0, 0, 1000}}));
  EXPECT_EQ(host.data.blocks.size(), 2u);
  EXPECT_EQ(host.pose(5).id, 5);
  destroy(nullptr);
}

TEST(AlgFactory, AnObjectMayBelongToAUniquePointer) {
  const std::unique_ptr<AlgBase> first(AlgFactory::CreateALG(0));
  std::unique_ptr<AlgBase> second(AlgFactory::CreateALG(0));
  second.reset();
  EXPECT_EQ(first->GetFixedCode(), 800);
  std::shared_ptr<AlgBase> third(AlgFactory::CreateALG(2));
  third.reset();
  EXPECT_EQ(first->GetFixedCode(), 800);
}

TEST(AlgFactory, FixedCodeIs800WhateverHappens) {
  const Host host;
  EXPECT_EQ(host.alg->GetFixedCode(), 800);
  for (const int productType : {0, 1, 2, 3}) {
    host.init(productType);
    EXPECT_EQ(host.alg->GetFixedCode(), 800);
  }
}

TEST(AlgFactory, FixedCodeNeedsNoSinkAndNoInit) {
  EXPECT_EQ(createAndKeep(2)->GetFixedCode(), 800);
}

TEST(AlgFactory, AssignmentReturnsTheLeftObject) {
  AlgFactory left, right;
  EXPECT_EQ(&(left = right), &left);
  AlgFactory& same = left;
  EXPECT_EQ(&(left = same), &left);
}

TEST(AlgFactory, NullSinksAreRefusedSilentlyAndKeepTheEarlierOnes) {
  Host host(0);
  EXPECT_FALSE(host.alg->SetLogCallback(nullptr));
  EXPECT_FALSE(host.alg->SetDataCallback(nullptr));
  EXPECT_THAT(host.log.lines, IsEmpty());

  EXPECT_FALSE(host.alg->HandleEvent(7, nullptr, nullptr));
  EXPECT_THAT(host.log.texts(), ElementsAre("alg: unknown event type!\n"));
  EXPECT_TRUE(host.see({{0, 0, 0, 1000}}));
  EXPECT_EQ(host.data.blocks.size(), 1u);
}

TEST(AlgFactory, NullSinksAreRefusedBeforeAnySinkIsSet) {
  AlgBase* const alg = createAndKeep(0);
  EXPECT_FALSE(alg->SetLogCallback(nullptr));
  EXPECT_FALSE(alg->SetDataCallback(nullptr));
}

// A device packet needs an Init: before it nothing is bound, and nothing is delivered.
TEST(AlgFactory, PacketsBeforeInitDeliverNothing) {
  Host host;
  EXPECT_TRUE(host.see({{0, 0, 0, 1000}}));
  EXPECT_THAT(host.data.blocks, IsEmpty());
  EXPECT_THAT(host.log.lines, IsEmpty());
}

}  // namespace
