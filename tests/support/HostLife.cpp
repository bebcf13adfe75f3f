#include <tests/support/HostLife.h>

#include <alg_kit/session/ByteForm.h>
#include <alg_kit/session/Player.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <limits>
#include <stdexcept>

#include <tests/support/ByteReader.h>
#include <tests/support/HandRig.h>

namespace testing_support {

namespace {

using algorithm::ResultBlock;
using algorithm::StereoCalibration;
using session::Call;
using session::CallKind;
using session::Entry;

constexpr std::size_t kInertialBytes = sizeof(algorithm::InertialRecord);
constexpr std::size_t kCalibrationDoubles = sizeof(StereoCalibration) / sizeof(double);
constexpr int kMessages = 9;
constexpr const char* kKnownMessages[kMessages] = {
    "3 alg: fpga: start byte error.\n",
    "3 alg: fpga: no buffer data error.\n",
    "3 alg: fpga: type bit format error.\n",
    "3 alg: fpga: buffer data format error.\n",
    "3 alg: fpga: check byte error.\n",
    "4 alg: configure failed!\n",
    "4 alg: unknown product type!",
    "4 alg: unknown project type!\n",
    "4 alg: unknown stream types for current product type!\n",
};
constexpr const char* kUnknownEvent = "4 alg: unknown event type!\n";
constexpr const char* kUnknownProduct = kKnownMessages[7];
constexpr const char* kUnknownStream = kKnownMessages[8];

// ---- reading
// -------------------------------------------------------------------------------------

double hostileNumber(ByteReader& reader) {
  using Limits = std::numeric_limits<double>;
  switch (reader.below(12)) {
    case 0:
      return 0.0;
    case 1:
      return -0.0;
    case 2:
      return Limits::quiet_NaN();
    case 3:
      return Limits::infinity();
    case 4:
      return -Limits::infinity();
    case 5:
      return Limits::max();
    case 6:
      return Limits::lowest();
    case 7:
      return Limits::denorm_min();
    case 8:
      return 1e-300;
    case 9:
      return reader.take<std::int8_t>();
    case 10:
      return reader.take<std::int16_t>() / 256.0;
    default:
      return reader.take<double>();
  }
}

void passNull(Call& call) {
  call.pointerGiven = false;
  call.payload.clear();
}

Call initCall(int productType, const StereoCalibration& calibration, int offset) {
  Call call;
  call.kind = CallKind::kInit;
  call.type = productType;
  call.offset = offset;
  call.pointerGiven = true;
  call.payload.resize(sizeof calibration);
  std::memcpy(call.payload.data(), &calibration, sizeof calibration);
  return call;
}

Call hostileInit(ByteReader& reader) {
  double values[kCalibrationDoubles];
  const StereoCalibration good = handCalibration();
  std::memcpy(values, &good, sizeof values);
  for (int n = reader.below(8); n > 0; --n) {
    // Mostly where the library looks: the first 56 numbers.
    const int index = reader.below(4) == 0 ? reader.below(kCalibrationDoubles) : reader.below(56);
    values[index] = hostileNumber(reader);
  }
  if (reader.below(8) == 0) std::fill(std::begin(values), std::end(values), hostileNumber(reader));
  StereoCalibration calibration;
  std::memcpy(static_cast<void*>(&calibration), values, sizeof values);
  const int productType = reader.below(4) == 0 ? reader.take<std::int32_t>() : reader.below(4);
  Call call = initCall(productType, calibration, reader.below(16));
  if (reader.below(16) == 0) passNull(call);
  return call;
}

/// Markers that move little from frame to frame when `steady`, anywhere otherwise.
std::vector<Marker> markersFrom(ByteReader& reader) {
  std::vector<Marker> markers(static_cast<std::size_t>(reader.below(9)));
  const bool steady = reader.below(4) != 0;
  for (Marker& marker : markers) {
    marker.id = reader.below(7);
    const auto x = reader.take<std::int8_t>(), y = reader.take<std::int8_t>(),
               z = reader.take<std::int8_t>();
    if (steady) {
      marker.x = 80 * marker.id + 0.5 * x;
      marker.y = 0.5 * y;
      marker.z = 1000 + 0.5 * z;
    } else {
      marker.x = 16.0 * x;
      marker.y = 16.0 * y;
      marker.z = 2500 + 20.0 * z;
    }
    constexpr std::uint32_t kWeights[] = {kSmall, 1 << 16, 1 << 20, 90};
    marker.weight = kWeights[reader.below(4)];
  }
  return markers;
}

Call inputCall(int streamType, Bytes payload) {
  Call call;
  call.kind = CallKind::kInputStream;
  call.type = streamType;
  call.pointerGiven = true;
  call.length = static_cast<int>(payload.size());
  call.payload = std::move(payload);
  return call;
}

Call packetCall(bool isStamped, std::uint32_t stamp, const Bytes& packet) {
  return isStamped ? inputCall(2, stamped(stamp, packet)) : inputCall(0, packet);
}

Bytes damaged(ByteReader& reader, Bytes packet) {
  for (int n = reader.below(4); n > 0; --n) {
    packet[reader.take<std::uint16_t>() % packet.size()] ^= reader.take<std::uint8_t>();
  }
  if (reader.below(2) == 0) packet.resize(reader.take<std::uint16_t>() % (packet.size() + 1));
  if (reader.below(2) == 0) packet = closed(packet);
  return packet;
}

/// Mostly short.
std::size_t rawLength(ByteReader& reader) {
  return reader.below(8) == 0 ? reader.take<std::uint16_t>() % 600u
                              : static_cast<std::size_t>(reader.below(64));
}

Call hostileInput(ByteReader& reader) {
  const int streamType = reader.below(2) == 0 ? reader.take<std::int32_t>() : reader.below(8) - 1;
  Call call = inputCall(streamType, reader.bytes(kInertialBytes));
  call.offset = reader.below(16);
  switch (reader.below(4)) {
    case 0:
      passNull(call);
      break;
    case 1:
      call.length = -1 - reader.take<std::uint16_t>();
      break;
    default:
      call.length = reader.below(static_cast<int>(kInertialBytes) + 1);
  }
  return call;
}

Call eventCall(ByteReader& reader, int eventType, std::uint64_t stamp) {
  Call call;
  call.kind = CallKind::kHandleEvent;
  call.type = eventType;
  call.pointerGiven = true;
  call.outputGiven = true;
  call.payload = reader.bytes(sizeof(algorithm::OrientationSample));
  if (eventType != 16) std::memcpy(call.payload.data(), &stamp, sizeof stamp);
  return call;
}

Call hostileEvent(ByteReader& reader, std::uint64_t stamp) {
  const int eventType = reader.below(3) == 0 ? reader.take<std::int32_t>() : reader.below(18) - 1;
  Call call = eventCall(reader, eventType, reader.below(2) == 0 ? 1234 : stamp);
  if (reader.below(8) == 0) passNull(call);
  call.outputGiven = reader.below(16) != 0;
  return call;
}

Call filterCall(int parameter, int mode) {
  Call call;
  call.kind = CallKind::kSetFilterMode;
  call.type = parameter;
  call.mode = mode;
  return call;
}

Call nextCall(ByteReader& reader, std::uint32_t& stamp) {
  const int operation = reader.below(20);
  switch (operation) {
    case 0:
      return initCall(reader.below(3), handCalibration(), reader.below(16));
    case 1:
      return hostileInit(reader);
    case 2:
      return packetCall(reader.below(2) == 0, stamp += 11111, reader.bytes(rawLength(reader)));
    case 3:
    case 4:
      return packetCall(operation == 3, stamp += 11111,
                        damaged(reader, packetOf(markersFrom(reader))));
    case 5:
      return filterCall(0, reader.below(4) - 1);
    case 6:
      return filterCall(reader.below(2), reader.take<std::int32_t>());
    case 7:
      return hostileEvent(reader, reader.take<std::uint64_t>());
    case 8:
      return hostileInput(reader);
    case 9:
      return inputCall(3 + reader.below(2), reader.bytes(kInertialBytes));
    case 10:
      return inputCall(1, reader.bytes(kInertialBytes));
    case 11:
      return inputCall(5, {static_cast<std::uint8_t>(reader.below(4)), 0, 0, 0});
    case 12:
      return eventCall(reader, 16, 0);
    case 13:
    case 14:
    case 15:
      return eventCall(reader, reader.below(6),
                       stamp + static_cast<std::uint64_t>(reader.take<std::int8_t>()) * 1000);
    default:
      return packetCall(operation < 18, stamp += 11111, packetOf(markersFrom(reader)));
  }
}

// ---- living
// --------------------------------------------------------------------------------------

/// Sees whether a query writes exactly its answer.
class GuardedAlg final : public algorithm::AlgBase {
 public:
  explicit GuardedAlg(algorithm::AlgBase& alg) : alg_(alg) {}

  bool Init(int productType, const unsigned char* config, int configOffset) override {
    return alg_.Init(productType, config, configOffset);
  }
  bool InputStream(int streamType, const unsigned char* buffer, int offset, int length) override {
    return alg_.InputStream(streamType, buffer, offset, length);
  }
  bool SetDataCallback(algorithm::DataSink* sink) override { return alg_.SetDataCallback(sink); }
  bool SetLogCallback(algorithm::LogSink* sink) override { return alg_.SetLogCallback(sink); }
  bool SetFilterMode(int parameter, int mode, void* reserved) override {
    return alg_.SetFilterMode(parameter, mode, reserved);
  }
  int GetFixedCode() override { return alg_.GetFixedCode(); }
  bool HandleEvent(int eventType, const void* input, void* output) override {
    constexpr std::uint8_t kUntouched = 0xCD;
    std::array<std::uint8_t, 64> guarded;
    guarded.fill(kUntouched);
    const bool answered =
        alg_.HandleEvent(eventType, input, output == nullptr ? nullptr : guarded.data());
    const std::size_t size = answered && output != nullptr ? session::answerSize(eventType) : 0;
    if (size > 0) std::memcpy(output, guarded.data(), size);
    if (std::any_of(guarded.begin() + static_cast<std::ptrdiff_t>(size), guarded.end(),
                    [](std::uint8_t byte) { return byte != kUntouched; }))
      throw std::logic_error("a query wrote beyond its answer, or refused and wrote");
    return answered;
  }

 private:
  algorithm::AlgBase& alg_;
};

// ---- promises
// ------------------------------------------------------------------------------------

/// Follows a life and says what is wrong with an answer.
class Examiner {
 public:
  std::string examine(const Entry& entry) {
    if (const std::string problem = logsOf(entry); !problem.empty()) return problem;
    const Call& call = entry.call;
    if (!call.returned) return "an exception";
    if (call.kind != CallKind::kInputStream && !entry.blocks.empty()) return "a block out of turn";
    switch (call.kind) {
      case CallKind::kInit:
        return init(entry);
      case CallKind::kInputStream:
        return input(entry);
      case CallKind::kSetFilterMode:
        return (call.returned == 1) == (call.type == 0) ? "" : "wrong result of SetFilterMode";
      default:
        return event(entry);
    }
  }

 private:
  static std::string textOf(const session::LogLine& line) {
    return std::to_string(line.level) + " " + line.text;
  }

  static bool logged(const Entry& entry, const char* text) {
    return entry.logs.size() == 1 && textOf(entry.logs[0]) == text;
  }

  static std::string logsOf(const Entry& entry) {
    for (const session::LogLine& line : entry.logs) {
      const std::string text = textOf(line);
      const bool known =
          text == kUnknownEvent || std::count(kKnownMessages, kKnownMessages + kMessages, text) > 0;
      if (!known) return "unknown message: " + text;
    }
    return "";
  }

  std::string init(const Entry& entry) {
    productType_ = entry.call.type;
    const bool accepted = entry.call.returned == 1;
    if (!entry.call.pointerGiven) {
      limitKnown_ = false;
      return !accepted && logged(entry, kKnownMessages[5]) ? "" : "null config accepted";
    }
    limitKnown_ = productType_ >= 0 && productType_ <= 2;
    if (limitKnown_) everConfigured_ = true;
    return accepted ? "" : "Init failed";
  }

  std::string input(const Entry& entry) {
    const Call& call = entry.call;
    const bool accepted = call.returned == 1;
    if (productType_ < 0 || productType_ > 2) {
      return !accepted && logged(entry, kUnknownProduct) ? "" : "unknown product accepted";
    }
    if (call.type < 0 || call.type > 5) {
      return !accepted && logged(entry, kUnknownStream) ? "" : "unknown stream accepted";
    }
    const bool packet = call.type == 0 || call.type == 2;
    const bool emptyPacket = call.type == 0 && call.length == 0;
    const bool refused = (!call.pointerGiven && !emptyPacket) || call.length < 0 ||
                         (call.type == 2 && call.length < 4);
    if (accepted == refused) return "wrong result of InputStream";
    if (!packet || refused || emptyPacket) {
      return entry.blocks.empty() && entry.logs.empty() ? "" : "a report or block out of turn";
    }
    if (entry.logs.size() > 1) return "more than one report";
    if (entry.blocks.size() > 1) return "more than one block";
    // A pipeline whose stages were never configured has nothing to decode with.
    if (entry.blocks.empty()) return everConfigured_ ? "no block for a packet" : "";
    return block(call, entry.blocks[0].block);
  }

  std::string block(const Call& call, const ResultBlock& block) const {
    if (call.type == 0 && block.header != 0) return "a header without a stamp";
    for (int k = 0; k < ResultBlock::kRecords; ++k) {
      const algorithm::TrackedPoint& record = block.records[k];
      if (record.id < -1 || record.id > 5) return "an id outside -1 to 5";
      if (record.reserved != 0) return "the reserved field was written";
      if (!limitKnown_) continue;
      const int objects = productType_ == 2 ? 6 : 3;
      if (record.id != -1 && record.id != k) return "an object in another's record";
      if (record.id != -1 && k >= objects) return "more objects than the product has";
      if (productType_ == 1 || record.id == -1) continue;
      // The limit, and 3 for what smoothing may add when an earlier product's points were deeper.
      const float farthest = (productType_ == 2 ? 4500.0f : 3500.0f) + 3.0f;
      if (!(-record.z >= 10.0f && -record.z <= farthest)) return "a depth out of range";
    }
    return "";
  }

  std::string event(const Entry& entry) const {
    const Call& call = entry.call;
    const bool answered = call.returned == 1;
    const int event = call.type;
    const bool known = (event >= 0 && event <= 5) || event == 16;
    if (!known) return !answered && logged(entry, kUnknownEvent) ? "" : "unknown event answered";
    const bool reads = event == 16 || (event == 2 && (productType_ == 0 || productType_ == 1));
    const bool refused = !call.outputGiven || (!call.pointerGiven && reads);
    if (answered == refused || !entry.logs.empty()) return "wrong result of HandleEvent";
    if (refused || event == 16) return "";
    std::int32_t id;
    std::memcpy(&id, call.output.data(), sizeof id);
    return id >= -1 && id <= 5 ? "" : "an answer's id outside -1 to 5";
  }

  int productType_ = 0;
  bool everConfigured_ = false;
  bool limitKnown_ = false;  ///< the stages and the service agree about the product
};

}  // namespace

Life lifeFrom(const std::uint8_t* data, std::size_t size) {
  ByteReader reader(data, size);
  Life life;
  std::uint32_t stamp = 0;
  while (!reader.empty()) life.push_back(nextCall(reader, stamp));
  return life;
}

std::vector<Entry> live(algorithm::AlgBase& alg, const Life& life) {
  GuardedAlg guarded(alg);
  session::Player player(&guarded);
  std::vector<Entry> lived;
  session::Unit unit;
  for (const Call& call : life) {
    unit.clear();
    Entry& entry = unit.append();
    entry.call = call;
    entry.call.index = static_cast<std::int64_t>(lived.size());
    lived.push_back(player.play(unit)[0]);
    lived.back().call.durationNs.reset();
  }
  return lived;
}

session::Bytes bytesOf(const std::vector<Entry>& lived) {
  session::Bytes bytes;
  session::Unit unit;
  for (const Entry& entry : lived) {
    unit.clear();
    unit.append() = entry;
    session::appendBytes(unit, bytes);
  }
  return bytes;
}

std::string brokenPromise(const std::vector<Entry>& lived) {
  Examiner examiner;
  for (const Entry& entry : lived) {
    const std::string problem = examiner.examine(entry);
    if (!problem.empty()) return "call " + std::to_string(entry.call.index) + ": " + problem;
  }
  return "";
}

}  // namespace testing_support
