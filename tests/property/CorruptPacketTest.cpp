// A corrupt packet that speaks of some objects leaves the other objects' later frames as they are
// when that packet had been empty.
#include <alg_kit/trace/FreshAlg.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>
#include <set>

#include <tests/property/LifeGenerator.h>
#include <tests/support/ByteReader.h>
#include <tests/support/HandRig.h>
#include <tests/support/Host.h>

namespace {

using namespace testing_support;
using algorithm::ResultBlock;

/// A byte that, read as a record's header, speaks of one of `ids` or of nobody.
std::uint8_t harmless(std::uint8_t byte, const std::set<int>& ids) {
  const bool validCamera = byte >> 4 <= 1;
  const bool mayBeAnother = validCamera && (byte & 0x0F) < 6 && ids.count(byte & 0x0F) == 0;
  return mayBeAnother ? static_cast<std::uint8_t>(byte | 0xF0) : byte;
}

/// Any bytes that speak of nobody but `ids`.
Bytes garbage(ByteReader& reader, const std::set<int>& ids) {
  Bytes bytes = reader.bytes(reader.take<std::uint16_t>() % 520);
  if (bytes.size() > 2 && reader.below(2) == 0) {
    bytes[0] = 0xAA;
    bytes[1] = 0x55;
  }
  for (std::uint8_t& byte : bytes) byte = harmless(byte, ids);
  return reader.below(2) == 0 ? closed(bytes) : bytes;
}

/// Blobs of `ids` in the wrong places, cut off somewhere, with a wrong check byte.
Bytes spoilt(ByteReader& reader, const std::set<int>& ids) {
  std::vector<Marker> markers;
  for (const int id : ids) {
    for (int n = reader.below(4); n > 0; --n) {
      markers.push_back({id, 4.0 * reader.take<std::int8_t>(), 4.0 * reader.take<std::int8_t>(),
                         1600 + 8.0 * reader.take<std::int8_t>(), kSmall});
    }
  }
  Bytes packet = packetOf(markers);
  packet.back() ^= 0x5A;
  if (reader.below(2) == 0) packet.resize(reader.take<std::uint16_t>() % packet.size() + 1);
  return packet;
}

/// Every object where it belongs, give or take 10 mm; some are hidden.
Bytes goodPacket(ByteReader& reader, int productType) {
  std::vector<Marker> markers;
  const int seen = reader.take<std::uint8_t>() | reader.take<std::uint8_t>();
  const int objects = productType == 2 ? 6 : 3;
  for (int id = 0; id < objects; ++id) {
    if ((seen >> id & 1) == 0) continue;
    const double x = 80.0 * id - 200 + 0.08 * reader.take<std::int8_t>();
    const double y = 0.08 * reader.take<std::int8_t>();
    markers.push_back({id, x, y, 900, kSmall});
    if (productType == 1 && id == 2) markers.push_back({id, x + 68, y, 900, kSmall});
  }
  return packetOf(markers);
}

RC_GTEST_PROP(CorruptPacket, ChangesNothingForObjectsItDoesNotSpeakOf, ()) {
  const int productType = *rc::gen::inRange(0, 3);
  const int objects = productType == 2 ? 6 : 3;
  const int mask = *rc::gen::inRange(1, (1 << objects) - 1);  // at least one on either side
  const Bytes bytes = *lifeBytes();
  std::set<int> ids;
  for (int id = 0; id < objects; ++id) {
    if (mask >> id & 1) ids.insert(id);
  }

  trace::FreshAlg corruptedAlg, emptyAlg;
  RecordingLog log;
  BlockCollector corrupted, empty;
  const std::pair<trace::FreshAlg*, BlockCollector*> runs[] = {{&corruptedAlg, &corrupted},
                                                               {&emptyAlg, &empty}};
  const auto calibration = handCalibration();
  for (const auto& [alg, data] : runs) {
    alg->SetLogCallback(&log);
    alg->SetDataCallback(data);
    alg->Init(productType, reinterpret_cast<const unsigned char*>(&calibration), 0);
    alg->SetFilterMode(0, 0, nullptr);
  }
  const auto feed = [](trace::FreshAlg& alg, bool isStamped, const Bytes& packet) {
    const Bytes payload = isStamped ? stamped(77, packet) : packet;
    alg.InputStream(isStamped ? 2 : 0, payload.data(), 0, static_cast<int>(payload.size()));
  };

  ByteReader reader(bytes.data(), bytes.size());
  int frames = 0, corruptFrames = 0;
  while (!reader.empty()) {
    const bool isStamped = reader.below(2) == 0;
    const bool good = reader.below(3) != 0;
    const Bytes packet = good                   ? goodPacket(reader, productType)
                         : reader.below(2) == 0 ? spoilt(reader, ids)
                                                : garbage(reader, ids);
    if (packet.empty()) continue;  // runs nothing
    feed(corruptedAlg, isStamped, packet);
    feed(emptyAlg, isStamped, good ? packet : packetOf({}));
    if (!good) {
      ++corruptFrames;
      continue;
    }
    ++frames;
    for (int id = 0; id < objects; ++id) {
      if (ids.count(id) != 0) continue;
      RC_ASSERT(std::memcmp(&corrupted.last().records[id], &empty.last().records[id],
                            sizeof(algorithm::TrackedPoint)) == 0);
    }
    for (int event = 0; event < 6; ++event) {
      if (ids.count(event) != 0 || event >= objects) continue;
      // A stamp in the frame's past: head 2 of product types 0 and 1 answers without extrapolation.
      const std::uint64_t stamp = 0;
      algorithm::PoseAnswer a, b;
      corruptedAlg.HandleEvent(event, &stamp, &a);
      emptyAlg.HandleEvent(event, &stamp, &b);
      RC_ASSERT(a.id == b.id);
      if (a.id != -1) RC_ASSERT(std::memcmp(&a, &b, sizeof a) == 0);
    }
  }
  RC_CLASSIFY(frames > 10 && corruptFrames > 3, "more than ten good and three corrupt frames");
}

}  // namespace
