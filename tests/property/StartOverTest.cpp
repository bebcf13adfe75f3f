// Histories, ids and filters survive Init. A host that wants to start over in the same process
// calls Init and SetFilterMode and feeds one frame in which nothing is seen; for product types 0
// and 2 what is seen from then on does not depend on what was before.
#include <alg_kit/trace/FreshAlg.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include <tests/property/LifeGenerator.h>
#include <tests/support/ByteReader.h>
#include <tests/support/HandRig.h>
#include <tests/support/HostLife.h>

namespace {

using namespace testing_support;
using algorithm::ResultBlock;
using algorithm::TrackedPoint;

struct Setting {
  int productType;
  bool isStamped;
  int filterMode;
};

session::Call input(int streamType, Bytes payload) {
  session::Call call;
  call.kind = session::CallKind::kInputStream;
  call.type = streamType;
  call.pointerGiven = true;
  call.length = static_cast<int>(payload.size());
  call.payload = std::move(payload);
  return call;
}

session::Call frame(const Setting& setting, std::uint32_t stamp, const Bytes& packet) {
  return setting.isStamped ? input(2, stamped(stamp, packet)) : input(0, packet);
}

/// The calls that start over. The packet fills the whole frame buffer, where bytes of earlier
/// packets would decide about some reports.
Life startOver(const Setting& setting) {
  session::Call init, mode;
  init.kind = session::CallKind::kInit;
  init.type = setting.productType;
  init.pointerGiven = true;
  init.payload.resize(sizeof(algorithm::StereoCalibration));
  const algorithm::StereoCalibration calibration = handCalibration();
  std::memcpy(init.payload.data(), &calibration, sizeof calibration);
  mode.kind = session::CallKind::kSetFilterMode;
  mode.mode = setting.filterMode;

  Bytes nothing(511, 0xFF);
  nothing[0] = 0xAA;
  nothing[1] = 0x55;
  return {init, mode, frame(setting, 0, closed(nothing)), input(3, Bytes(56)), input(4, Bytes(56))};
}

/// Frames of markers near their places, inertial samples and queries.
Life sessionFrom(const Bytes& bytes, const Setting& setting) {
  ByteReader reader(bytes.data(), bytes.size());
  const int objects = setting.productType == 2 ? 6 : 3;
  Life life;
  std::uint32_t stamp = 1000;
  while (!reader.empty()) {
    const int what = reader.below(8);
    if (what == 0) {
      life.push_back(input(3 + reader.below(2), reader.bytes(56)));
    } else if (what < 4) {
      session::Call query;
      query.kind = session::CallKind::kHandleEvent;
      query.type = reader.below(objects);
      query.pointerGiven = true;
      query.outputGiven = true;
      const std::uint64_t at = stamp + reader.take<std::uint8_t>() * 1000u;
      query.payload.resize(sizeof at);
      std::memcpy(query.payload.data(), &at, sizeof at);
      life.push_back(query);
    } else {
      std::vector<Marker> markers;
      const int seen = reader.take<std::uint8_t>();
      for (int id = 0; id < objects; ++id) {
        if ((seen >> id & 1) == 0) continue;
        const double x = 0.2 * reader.take<std::int8_t>(), y = 0.2 * reader.take<std::int8_t>();
        markers.push_back({id, 80.0 * id - 200 + x, y, 1600, kSmall});
      }
      Bytes packet = packetOf(markers);
      if (reader.below(8) == 0) packet.back() ^= 1;
      life.push_back(frame(setting, stamp += 11111, packet));
    }
  }
  return life;
}

std::vector<std::string> textsOf(const session::Entry& entry) {
  std::vector<std::string> texts;
  for (const session::LogLine& line : entry.logs) texts.push_back(line.text);
  return texts;
}

bool samePresence(const TrackedPoint& a, const TrackedPoint& b) {
  if (a.id != b.id) return false;
  const bool hostFields =
      std::memcmp(a.hostPosition, b.hostPosition, sizeof a.hostPosition) == 0 &&
      std::memcmp(a.hostOrientation, b.hostOrientation, sizeof a.hostOrientation) == 0;
  return hostFields && (a.id == -1 || std::memcmp(&a.x, &b.x, 3 * sizeof a.x) == 0);
}

bool sameSight(const ResultBlock& a, const ResultBlock& b) {
  if (a.header != b.header) return false;
  for (int k = 0; k < ResultBlock::kRecords; ++k) {
    if (!samePresence(a.records[k], b.records[k])) return false;
  }
  return true;
}

RC_GTEST_PROP(StartOver, ForgetsWhatWasSeenBefore, ()) {
  const Setting setting{*rc::gen::element(0, 2), *rc::gen::arbitrary<bool>(),
                        *rc::gen::inRange(-1, 3)};
  const Bytes before = *lifeBytes();
  const Bytes sessionBytes = *lifeBytes();
  const Life earlier = lifeFrom(before.data(), before.size());
  const Life again = startOver(setting);
  const Life life = sessionFrom(sessionBytes, setting);
  // Answers tell of filters that follow the framing, so only where both go together.
  const bool compareAnswers =
      setting.filterMode != -1 && setting.isStamped == (setting.productType == 0);

  trace::FreshAlg alg;
  live(alg, earlier);
  live(alg, again);
  const auto first = live(alg, life);
  live(alg, again);
  const auto second = live(alg, life);

  const ResultBlock* latest = nullptr;
  int blocks = 0;
  for (std::size_t i = 0; i < life.size(); ++i) {
    RC_ASSERT(first[i].call.returned == second[i].call.returned);
    RC_ASSERT(textsOf(first[i]) == textsOf(second[i]));
    RC_ASSERT(first[i].blocks.size() == second[i].blocks.size());
    for (std::size_t b = 0; b < first[i].blocks.size(); ++b) {
      RC_ASSERT(sameSight(first[i].blocks[b].block, second[i].blocks[b].block));
      latest = &first[i].blocks[b].block;
      ++blocks;
    }
    const bool query = life[i].kind == session::CallKind::kHandleEvent;
    if (query && compareAnswers && latest != nullptr && latest->records[life[i].type].id != -1) {
      RC_ASSERT(first[i].call.output == second[i].call.output);
    }
  }
  RC_CLASSIFY(blocks > 10, "more than ten frames");
}

}  // namespace
