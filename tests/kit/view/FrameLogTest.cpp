#include <alg_kit/view/FrameLog.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

namespace view {
namespace {

/// Frame `i` at i/10 s, object 0 at x = i, an event where told.
Frame frameNumber(std::int64_t i, EventSet events = 0) {
  Frame frame;
  frame.seconds = static_cast<double>(i) / 10;
  frame.packet = i;
  frame.call = 4 * i;
  frame.events = events;
  frame.objects.resize(1);
  frame.objects[0].seen = i % 5 != 0;
  if (frame.objects[0].seen) frame.objects[0].raw = {static_cast<float>(i), 0, 0};
  frame.objects[0].reason = i % 5 == 0 ? "nobody saw it" : "";
  return frame;
}

TEST(FrameLog, GivesEveryFrameBackAsItWas) {
  FrameLog log;
  for (std::int64_t i = 0; i < 100; ++i) {
    Frame frame = frameNumber(i);
    frame.blobs.push_back({1, 3, 12.5f, 7.25f, 9, trace::BlobFate::kMerged, 4, "why"});
    frame.messages.push_back({7, 3, "<b>text</b>"});
    log.add(frame);
  }
  ASSERT_EQ(log.size(), 100);
  const Frame frame = log.frame(50);
  EXPECT_EQ(frame.packet, 50);
  EXPECT_EQ(frame.call, 200);
  EXPECT_FALSE(frame.objects[0].seen);
  EXPECT_EQ(frame.objects[0].reason, "nobody saw it");
  ASSERT_EQ(frame.blobs.size(), 1u);
  EXPECT_EQ(frame.blobs[0].x, 12.5f);
  EXPECT_EQ(frame.blobs[0].fate, trace::BlobFate::kMerged);
  EXPECT_EQ(frame.messages[0].text, "<b>text</b>");
}

TEST(FrameLog, TheLatestFrameMayStillChange) {
  FrameLog log;
  log.add(frameNumber(0));
  Frame frame = frameNumber(1);
  log.add(frame);
  const std::int64_t before = log.changes();
  frame.queries = 3;
  log.amend(frame);
  EXPECT_EQ(log.frame(1).queries, 3);
  EXPECT_GT(log.changes(), before);
  log.add(frameNumber(2));
  EXPECT_EQ(log.frame(1).queries, 3);
}

TEST(FrameLog, FindsTheFrameOfATime) {
  FrameLog log;
  EXPECT_EQ(log.at(1), -1);
  for (std::int64_t i = 0; i < 1000; ++i) log.add(frameNumber(i));
  EXPECT_EQ(log.at(-5), 0);
  EXPECT_EQ(log.at(0), 0);
  EXPECT_EQ(log.at(12.34), 123);
  EXPECT_EQ(log.at(12.4), 124);
  EXPECT_EQ(log.at(1e9), 999);
}

TEST(FrameLog, ColumnsHoldTheSmallestAndLargestOfTheirFrames) {
  FrameLog log;
  for (std::int64_t i = 0; i < 1000; ++i) log.add(frameNumber(i));
  const FrameLog::Series series = log.series(0, 999, 100);
  // 1000 frames do not fit into 100 columns of 8: 64 each.
  ASSERT_EQ(series.framesEach, 64);
  ASSERT_EQ(series.columns.size(), 16u);
  const Summary& second = series.columns[1];
  EXPECT_EQ(series.first[1], 64);
  EXPECT_EQ(second.frames, 64u);
  EXPECT_EQ(second.low[rowOf(0, ObjectRow::kX)], 64);
  EXPECT_EQ(second.high[rowOf(0, ObjectRow::kX)], 127);
  // 65, 70 ... 125.
  EXPECT_EQ(second.absent[0], 13u);
  EXPECT_EQ(second.seen[0], 51u);
  EXPECT_NEAR(second.low[rowOf(FrameRow::kInterval)], 100, 1e-3);
  EXPECT_TRUE(std::isnan(second.low[rowOf(1, ObjectRow::kX)]));
}

TEST(FrameLog, ShortStretchesComeFrameByFrame) {
  FrameLog log;
  for (std::int64_t i = 0; i < 1000; ++i) log.add(frameNumber(i));
  const FrameLog::Series series = log.series(501, 560, 100);
  EXPECT_EQ(series.framesEach, 1);
  ASSERT_EQ(series.columns.size(), 60u);
  EXPECT_EQ(series.first[7], 508);
  EXPECT_EQ(series.columns[7].low[rowOf(0, ObjectRow::kX)], 508);
}

TEST(FrameLog, FindsEventsInBothDirections) {
  FrameLog log;
  for (std::int64_t i = 0; i < 5000; ++i)
    log.add(frameNumber(i, i == 77 || i == 4321 ? setOf(Event::kJump)
                           : i == 2000          ? setOf(Event::kGap)
                                                : EventSet{0}));
  EXPECT_EQ(log.next(-1, true, setOf(Event::kJump)), 77);
  EXPECT_EQ(log.next(77, true, setOf(Event::kJump)), 4321);
  EXPECT_EQ(log.next(4321, true, setOf(Event::kJump)), std::nullopt);
  EXPECT_EQ(log.next(4999, false, setOf(Event::kJump)), 4321);
  EXPECT_EQ(log.next(4321, false, setOf(Event::kJump)), 77);
  EXPECT_EQ(log.next(4321, false, kAllEvents), 2000);
  EXPECT_EQ(log.next(77, false, kAllEvents), std::nullopt);
  // Wherever it begins, as if frame after frame had been looked at.
  for (std::int64_t from = 0; from < 5000; from += 61) {
    std::optional<std::int64_t> expected;
    if (from < 77)
      expected = 77;
    else if (from < 2000)
      expected = 2000;
    else if (from < 4321)
      expected = 4321;
    EXPECT_EQ(log.next(from, true, kAllEvents), expected) << from;
  }
}

TEST(FrameLog, AnEventThatIsNoticedLaterIsFoundWhereItHappened) {
  FrameLog log;
  for (std::int64_t i = 0; i < 700; ++i) log.add(frameNumber(i));
  log.mark(130, Event::kOutlier);
  log.mark(130, Event::kOutlier);
  log.mark(699, Event::kOutlier);
  EXPECT_EQ(log.next(0, true, setOf(Event::kOutlier)), 130);
  EXPECT_EQ(log.next(130, true, setOf(Event::kOutlier)), 699);
  const FrameLog::Series series = log.series(0, 699, 100);
  ASSERT_EQ(series.framesEach, 8);
  EXPECT_EQ(series.columns[16].events[static_cast<std::size_t>(Event::kOutlier)], 1u);
}

}  // namespace
}  // namespace view
