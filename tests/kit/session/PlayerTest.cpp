#include <alg_kit/recording/RecordingAlg.h>
#include <alg_kit/recording/UnitCursor.h>
#include <alg_kit/session/Comparison.h>
#include <alg_kit/session/Player.h>
#include <tests/support/ScratchFolder.h>
#include <tests/support/ScriptedAlg.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using session::CallKind;
using session::Entry;
using session::Player;
using session::WhatIf;
using testing::ElementsAre;

Entry entryOf(std::int64_t index, CallKind kind) {
  Entry entry;
  entry.call.index = index;
  entry.call.kind = kind;
  return entry;
}

session::Unit unitOf(const std::vector<Entry>& entries) {
  session::Unit unit;
  for (const Entry& entry : entries) unit.append() = entry;
  return unit;
}

/// The library's part of a session with everything that is hard to replay: messages, a block,
/// queries from inside both callbacks, and a sink that throws.
void script(ScriptedAlg& library) {
  library.onInputStream = [](ScriptedAlg& self) {
    self.log->Log(3, "alg: before\n");
    self.deliver(5);
    self.log->Log(4, "alg: after\n");
    return true;
  };
}

class PlayerTest : public testing::Test {
 protected:
  std::vector<session::Unit> unitsOf(const std::string& path) {
    std::vector<session::Unit> units;
    const recording::RecordingReader reader(path);
    recording::UnitCursor cursor(reader.entries());
    for (session::Unit unit; cursor.next(unit);) units.push_back(unit);
    return units;
  }

  ScratchFolder folder_;
};

TEST_F(PlayerTest, MakesTheSameCallsInTheSameOrderFromTheSameCallbacks) {
  ScriptedAlg recorded;
  script(recorded);
  {
    recording::RecordingAlg alg(&recorded, folder_.path("r"));
    ScriptedHost host;
    bool throws = false;
    unsigned char answer[52];
    host.onLog = [&](int level, const char*) {
      return level == 3 && alg.HandleEvent(3, nullptr, answer);
    };
    host.onDeliver = [&](const void*, int, int) {
      alg.HandleEvent(4, nullptr, answer);
      alg.HandleEvent(5, nullptr, nullptr);
      if (throws) throw std::runtime_error("host");
      return true;
    };
    alg.SetLogCallback(&host);
    alg.SetDataCallback(&host);
    alg.InputStream(0, nullptr, 0, 0);
    throws = true;
    EXPECT_THROW(alg.InputStream(2, nullptr, 0, 9), std::runtime_error);
    alg.SetFilterMode(0, 1, nullptr);
    alg.GetFixedCode();
  }
  ScriptedAlg replayed;
  script(replayed);
  Player player(&replayed);
  replayed.calls.clear();  // the player set its sinks
  for (const auto& unit : unitsOf(folder_.path("r"))) {
    const auto& played = player.play(unit);
    ASSERT_EQ(played.size(), unit.size());
    for (std::size_t i = 0; i < unit.size(); ++i) {
      EXPECT_EQ(session::differenceInOutcome(unit[i], played[i], "recorded", "replayed"),
                std::nullopt);
      EXPECT_EQ(session::differenceInArguments(unit[i].call, played[i].call, "a", "b"),
                std::nullopt);
    }
  }
  EXPECT_EQ(replayed.calls, recorded.calls);
}

TEST_F(PlayerTest, NoticesADifferentAnswer) {
  ScriptedAlg library;
  Player player(&library);
  Entry entry = entryOf(0, CallKind::kHandleEvent);
  entry.call.type = 1;
  entry.call.outputGiven = true;
  entry.call.returned = 1;
  entry.call.output.assign(52, 0x41);
  entry.call.output[28] = 0x42;
  const auto& played = player.play(unitOf({entry}));
  EXPECT_THAT(*session::differenceInOutcome(entry, played[0], "recorded", "replayed"),
              testing::HasSubstr("answer, filtered x: recorded 12.0784"));
}

TEST_F(PlayerTest, ReplacesTheConfigurationOnRequest) {
  ScriptedAlg library;
  WhatIf whatIf;
  whatIf.productType = 2;
  whatIf.filterMode = 1;
  algorithm::StereoCalibration calibration;
  calibration.translation[0] = -65;
  whatIf.calibration = calibration;
  Player player(&library, whatIf, true);
  library.calls.clear();
  Entry init = entryOf(0, CallKind::kInit);
  init.call.type = 1;
  init.call.pointerGiven = true;
  init.call.payload.resize(920);
  const auto played = player.play(unitOf({init}));
  Entry mode = entryOf(1, CallKind::kSetFilterMode);
  mode.call.mode = -1;
  player.play(unitOf({mode}));
  EXPECT_THAT(library.calls,
              ElementsAre("Init 2 1 0", "SetFilterMode 0 1 0", "SetFilterMode 0 1 0"));
  EXPECT_EQ(std::memcmp(played[0].call.payload.data(), &calibration, sizeof calibration), 0);
}

TEST_F(PlayerTest, PlaysCallsWhoseCallbackStaysAway) {
  ScriptedAlg library;  // delivers nothing
  Player player(&library);
  library.calls.clear();
  Entry outer = entryOf(4, CallKind::kInputStream);
  Entry inner = entryOf(5, CallKind::kGetFixedCode);
  inner.call.parent = 4;
  player.play(unitOf({outer, inner}));
  EXPECT_THAT(library.calls, ElementsAre("InputStream 0 0 0 0", "GetFixedCode"));
}

// With the bytes in a buffer of their own a sanitizer sees the library read beyond them.
TEST_F(PlayerTest, PutsTheBytesWhereTheHostHadThem) {
  ScriptedAlg library;
  Player player(&library);
  library.calls.clear();
  Entry input = entryOf(0, CallKind::kInputStream);
  input.call.pointerGiven = true;
  input.call.offset = 3;
  input.call.length = 2;
  input.call.payload = {7, 8};
  player.play(unitOf({input}));
  input.call.offset = -100;
  player.play(unitOf({input}));
  EXPECT_THAT(library.calls, ElementsAre("InputStream 0 1 3 2", "InputStream 0 1 0 2"));
}

// Thousands of calls under one parent, each in a callback of its own.
TEST_F(PlayerTest, LooksAtEachNestedCallAFewTimesOnly) {
  ScriptedAlg library;
  Player player(&library);
  constexpr int kCalls = 4000;
  session::Unit unit;
  unit.append() = entryOf(0, CallKind::kInputStream);
  for (int i = 1; i <= kCalls; ++i) {
    Entry& entry = unit.append() = entryOf(i, CallKind::kGetFixedCode);
    entry.call.parent = 0;
    entry.call.parentStep = i - 1;
  }
  library.onInputStream = [](ScriptedAlg& self) {
    for (int i = 0; i < kCalls; ++i) self.deliver(1);
    return true;
  };
  library.calls.clear();
  player.play(unit);
  EXPECT_EQ(library.calls.size(), kCalls + 1u);
  EXPECT_LE(player.looks(), 3 * kCalls);
  // The callbacks stay away.
  library.onInputStream = [](ScriptedAlg&) { return true; };
  library.calls.clear();
  player.play(unit);
  EXPECT_EQ(library.calls.size(), kCalls + 1u);
  EXPECT_LE(player.looks(), 3 * kCalls);
}

TEST_F(PlayerTest, PlaysNestedCallsOfNestedCallsWhereTheyBelong) {
  ScriptedAlg library;
  Player player(&library);
  library.calls.clear();
  // 0 InputStream: in its callback 0 the call 1, in whose callback 0 the call 2; in 1 the call 3.
  session::Unit unit;
  for (int i = 0; i < 4; ++i) unit.append() = entryOf(i, CallKind::kInputStream);
  for (int i = 0; i < 4; ++i) unit[static_cast<std::size_t>(i)].call.length = i;
  unit[1].call.parent = 0;
  unit[2].call.parent = 1;
  unit[3].call.parent = 0;
  unit[3].call.parentStep = 1;
  std::vector<std::string> ends;
  library.onInputStream = [&](ScriptedAlg& self) {
    const std::string call = self.calls.back();
    self.deliver(1);
    self.deliver(2);
    ends.push_back(call.substr(call.rfind(' ') + 1));
    return true;
  };
  player.play(unit);
  EXPECT_THAT(library.calls, ElementsAre("InputStream 0 0 0 0", "InputStream 0 0 0 1",
                                         "InputStream 0 0 0 2", "InputStream 0 0 0 3"));
  EXPECT_THAT(ends, ElementsAre("2", "1", "3", "0"));
}

TEST_F(PlayerTest, RefusesBottomlessNesting) {
  ScriptedAlg library;
  Player player(&library);
  session::Unit unit;
  for (int i = 0; i < 10000; ++i) {
    Entry& entry = unit.append() = entryOf(i, CallKind::kInputStream);
    if (i > 0) entry.call.parent = i - 1;
  }
  library.onInputStream = [](ScriptedAlg& self) { return self.deliver(1); };
  EXPECT_THROW(player.play(unit), std::runtime_error);
}

}  // namespace
