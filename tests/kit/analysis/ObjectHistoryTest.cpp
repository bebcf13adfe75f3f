#include <alg_kit/analysis/ObjectHistory.h>

#include <gtest/gtest.h>

namespace {

using analysis::Moment;
using analysis::ObjectEnd;
using analysis::objectEnd;
using analysis::ObjectHistory;
using trace::BlobFate;

trace::PacketTrace packetWith(std::initializer_list<trace::TracedBlob> blobs) {
  trace::PacketTrace packet;
  packet.blobs = blobs;
  return packet;
}

trace::TracedBlob blob(int camera, int id, BlobFate fate) {
  trace::TracedBlob result;
  result.camera = camera;
  result.raw.id = static_cast<std::uint8_t>(id);
  result.fate = fate;
  return result;
}

algorithm::ResultBlock blockWith(int object) {
  algorithm::ResultBlock block;
  block.records[object].id = object;
  return block;
}

Moment moment(std::int64_t packet) {
  return {packet, 4 * packet + 4, static_cast<double>(packet) / 90};
}

TEST(ObjectEndTest, SaysThatNoCameraSawTheId) {
  const auto packet = packetWith({blob(0, 1, BlobFate::kDelivered)});
  const ObjectEnd end = objectEnd(&packet, nullptr, 3);
  EXPECT_FALSE(end.delivered);
  EXPECT_EQ(end.key, "unseen");
  EXPECT_EQ(end.detail, "no camera saw id 3");
}

TEST(ObjectEndTest, NamesTheOnlyCameraThatSawIt) {
  const auto left = packetWith({blob(0, 3, BlobFate::kNoPartner)});
  const auto right = packetWith({blob(1, 3, BlobFate::kNoPartner)});
  EXPECT_EQ(objectEnd(&left, nullptr, 3).detail, "only the left camera saw it");
  EXPECT_EQ(objectEnd(&right, nullptr, 3).key, "only-right");
}

TEST(ObjectEndTest, SaysWhyItsPairWasRefused) {
  auto left = blob(0, 3, BlobFate::kEpipolar);
  left.other = 1;
  left.value = 50.92;
  left.limit = 7;
  const auto packet = packetWith({left, blob(1, 3, BlobFate::kEpipolar)});
  const ObjectEnd end = objectEnd(&packet, nullptr, 3);
  EXPECT_EQ(end.key, "epipolar");
  EXPECT_EQ(end.detail,
            "its pair was refused: blobs 0 and 1 are 50.92 px from each other's epipolar lines, "
            "not below their mean diameter of 7");
}

TEST(ObjectEndTest, GoesByTheBlobThatCameFarthest) {
  const auto packet = packetWith({blob(0, 3, BlobFate::kSurplus), blob(0, 3, BlobFate::kJumped),
                                  blob(1, 3, BlobFate::kJumped), blob(1, 2, BlobFate::kDelivered)});
  EXPECT_EQ(objectEnd(&packet, nullptr, 3).key, "jumped");
}

TEST(ObjectEndTest, ADeliveredObjectHasNoReasonAndAHeldOneHas) {
  const auto block = blockWith(1);
  const auto seen =
      packetWith({blob(0, 1, BlobFate::kDelivered), blob(1, 1, BlobFate::kDelivered)});
  EXPECT_TRUE(objectEnd(&seen, &block, 1).delivered);
  EXPECT_EQ(objectEnd(&seen, &block, 1).key, "");
  const auto held =
      packetWith({blob(0, 1, BlobFate::kHeldByJump), blob(1, 1, BlobFate::kHeldByJump)});
  const ObjectEnd end = objectEnd(&held, &block, 1);
  EXPECT_TRUE(end.delivered);
  EXPECT_TRUE(end.held);
  EXPECT_EQ(end.key, "held-by-jump");
}

TEST(ObjectEndTest, AnUndecodedPacketIsNamedAsOne) {
  EXPECT_EQ(objectEnd(nullptr, nullptr, 0).key, "not-decoded");
}

TEST(ObjectHistoryTest, JoinsPacketsToRunsAndCountsTheirReasonsMostFirst) {
  ObjectHistory history(3);
  const auto block = blockWith(3);
  const auto seen =
      packetWith({blob(0, 3, BlobFate::kDelivered), blob(1, 3, BlobFate::kDelivered)});
  const auto unseen = packetWith({});
  const auto onlyLeft = packetWith({blob(0, 3, BlobFate::kNoPartner)});
  const trace::PacketTrace* const order[] = {&seen, &onlyLeft, &unseen, &unseen,
                                             &seen, &onlyLeft, &seen};
  for (std::int64_t n = 0; n < 7; ++n)
    history.add(moment(n), order[n], order[n] == &seen ? &block : nullptr);

  EXPECT_EQ(history.packets(), 7);
  EXPECT_EQ(history.seen(), 3);
  ASSERT_EQ(history.missing().size(), 2u);
  const analysis::MissingRun& run = history.missing()[0];
  EXPECT_EQ(run.first.packet, 1);
  EXPECT_EQ(run.first.call, 8);
  EXPECT_EQ(run.last.packet, 3);
  EXPECT_EQ(run.packets, 3);
  ASSERT_EQ(run.reasons.size(), 2u);
  EXPECT_EQ(run.reasons[0].key, "unseen");
  EXPECT_EQ(run.reasons[0].packets, 2);
  EXPECT_EQ(run.reasons[1].key, "only-left");
  EXPECT_EQ(run.reasons[1].packets, 1);
  EXPECT_EQ(history.missing()[1].first.packet, 5);
  EXPECT_EQ(history.missing()[1].last.packet, 5);
}

}  // namespace
