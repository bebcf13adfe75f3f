#include <tests/support/HostLife.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>

#include <tests/support/ByteReader.h>
#include <tests/support/HandRig.h>

namespace testing_support {

namespace {

using algorithm::ResultBlock;
using algorithm::StereoCalibration;
using Kind = LifeCall::Kind;

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

LifeCall initCall(int productType, const StereoCalibration& calibration, int offset) {
  LifeCall call;
  call.kind = Kind::kInit;
  call.selector = productType;
  call.offset = offset;
  call.payload.resize(sizeof calibration);
  std::memcpy(call.payload.data(), &calibration, sizeof calibration);
  return call;
}

LifeCall hostileInit(ByteReader& reader) {
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
  LifeCall call = initCall(productType, calibration, reader.below(16));
  call.null = reader.below(16) == 0;
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

LifeCall inputCall(int streamType, Bytes payload) {
  LifeCall call;
  call.kind = Kind::kInputStream;
  call.selector = streamType;
  call.length = static_cast<int>(payload.size());
  call.payload = std::move(payload);
  return call;
}

LifeCall packetCall(bool isStamped, std::uint32_t stamp, const Bytes& packet) {
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

LifeCall hostileInput(ByteReader& reader) {
  const int streamType = reader.below(2) == 0 ? reader.take<std::int32_t>() : reader.below(8) - 1;
  LifeCall call = inputCall(streamType, reader.bytes(kInertialBytes));
  call.offset = reader.below(16);
  switch (reader.below(4)) {
    case 0:
      call.null = true;
      break;
    case 1:
      call.length = -1 - reader.take<std::uint16_t>();
      break;
    default:
      call.length = reader.below(static_cast<int>(kInertialBytes) + 1);
  }
  return call;
}

LifeCall eventCall(ByteReader& reader, int eventType, std::uint64_t stamp) {
  LifeCall call;
  call.kind = Kind::kHandleEvent;
  call.selector = eventType;
  call.payload = reader.bytes(sizeof(algorithm::OrientationSample));
  if (eventType != 16) std::memcpy(call.payload.data(), &stamp, sizeof stamp);
  return call;
}

LifeCall hostileEvent(ByteReader& reader, std::uint64_t stamp) {
  const int eventType = reader.below(3) == 0 ? reader.take<std::int32_t>() : reader.below(18) - 1;
  LifeCall call = eventCall(reader, eventType, reader.below(2) == 0 ? 1234 : stamp);
  call.null = reader.below(8) == 0;
  call.nullOutput = reader.below(16) == 0;
  return call;
}

LifeCall filterCall(int parameter, int mode) {
  LifeCall call;
  call.kind = Kind::kSetFilterMode;
  call.parameter = parameter;
  call.selector = mode;
  return call;
}

LifeCall nextCall(ByteReader& reader, std::uint32_t& stamp) {
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

class Sinks : public algorithm::LogSink, public algorithm::DataSink {
 public:
  bool Log(int level, const char* message) override {
    now->logs.push_back(std::to_string(level) + " " + message);
    return true;
  }
  bool Deliver(const void* buffer, int offset, int length) override {
    ResultBlock block;
    if (offset != 0 || length != static_cast<int>(sizeof block)) now->logs.push_back("bad size");
    std::memcpy(static_cast<void*>(&block), buffer, sizeof block);
    now->blocks.push_back(block);
    return true;
  }
  LifeAnswer* now = nullptr;
};

LifeAnswer make(algorithm::AlgBase& alg, const LifeCall& call, Sinks& sinks) {
  LifeAnswer answer;
  sinks.now = &answer;
  // A buffer of its own that ends with the payload, so that a sanitizer sees reads beyond it.
  Bytes buffer(static_cast<std::size_t>(call.offset) + call.payload.size());
  std::copy(call.payload.begin(), call.payload.end(), buffer.begin() + call.offset);
  const unsigned char* bytes = call.null ? nullptr : buffer.data();
  switch (call.kind) {
    case Kind::kInit:
      answer.result = alg.Init(call.selector, bytes, call.offset);
      break;
    case Kind::kInputStream:
      answer.result = alg.InputStream(call.selector, bytes, call.offset, call.length);
      break;
    case Kind::kSetFilterMode:
      answer.result = alg.SetFilterMode(call.parameter, call.selector, nullptr);
      break;
    case Kind::kHandleEvent:
      answer.output.assign(call.selector == 16 ? 48 : 52, 0xCD);
      answer.result =
          alg.HandleEvent(call.selector, bytes, call.nullOutput ? nullptr : answer.output.data());
  }
  return answer;
}

// ---- promises
// ------------------------------------------------------------------------------------

/// Follows a life and says what is wrong with an answer.
class Examiner {
 public:
  std::string examine(const LifeCall& call, const LifeAnswer& answer) {
    if (const std::string problem = logsOf(answer); !problem.empty()) return problem;
    if (call.kind != Kind::kInputStream && !answer.blocks.empty()) return "a block out of turn";
    switch (call.kind) {
      case Kind::kInit:
        return init(call, answer);
      case Kind::kInputStream:
        return input(call, answer);
      case Kind::kSetFilterMode:
        return answer.result == (call.parameter == 0) ? "" : "wrong result of SetFilterMode";
      default:
        return event(call, answer);
    }
  }

 private:
  static bool logged(const LifeAnswer& answer, const char* text) {
    return answer.logs == std::vector<std::string>{text};
  }

  static std::string logsOf(const LifeAnswer& answer) {
    for (const std::string& text : answer.logs) {
      const bool known =
          text == kUnknownEvent || std::count(kKnownMessages, kKnownMessages + kMessages, text) > 0;
      if (!known) return "unknown message: " + text;
    }
    return "";
  }

  std::string init(const LifeCall& call, const LifeAnswer& answer) {
    productType_ = call.selector;
    if (call.null) {
      limitKnown_ = false;
      return !answer.result && logged(answer, kKnownMessages[5]) ? "" : "null config accepted";
    }
    limitKnown_ = productType_ >= 0 && productType_ <= 2;
    if (limitKnown_) everConfigured_ = true;
    return answer.result ? "" : "Init failed";
  }

  std::string input(const LifeCall& call, const LifeAnswer& answer) {
    if (productType_ < 0 || productType_ > 2) {
      return !answer.result && logged(answer, kUnknownProduct) ? "" : "unknown product accepted";
    }
    if (call.selector < 0 || call.selector > 5) {
      return !answer.result && logged(answer, kUnknownStream) ? "" : "unknown stream accepted";
    }
    const bool packet = call.selector == 0 || call.selector == 2;
    const bool emptyPacket = call.selector == 0 && call.length == 0;
    const bool refused =
        (call.null && !emptyPacket) || call.length < 0 || (call.selector == 2 && call.length < 4);
    if (answer.result == refused) return "wrong result of InputStream";
    if (!packet || refused || emptyPacket) {
      return answer.blocks.empty() && answer.logs.empty() ? "" : "a report or block out of turn";
    }
    if (answer.logs.size() > 1) return "more than one report";
    if (answer.blocks.size() > 1) return "more than one block";
    // A pipeline whose stages were never configured has nothing to decode with.
    if (answer.blocks.empty()) return everConfigured_ ? "no block for a packet" : "";
    return block(call, answer.blocks[0]);
  }

  std::string block(const LifeCall& call, const ResultBlock& block) const {
    if (call.selector == 0 && block.header != 0) return "a header without a stamp";
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

  static bool untouched(const LifeAnswer& answer) {
    return std::all_of(answer.output.begin(), answer.output.end(),
                       [](std::uint8_t byte) { return byte == 0xCD; });
  }

  std::string event(const LifeCall& call, const LifeAnswer& answer) const {
    const int event = call.selector;
    const bool known = (event >= 0 && event <= 5) || event == 16;
    if (!known) {
      return !answer.result && untouched(answer) && logged(answer, kUnknownEvent)
                 ? ""
                 : "unknown event answered";
    }
    const bool reads = event == 16 || (event == 2 && (productType_ == 0 || productType_ == 1));
    const bool refused = call.nullOutput || (call.null && reads);
    if (answer.result == refused || !answer.logs.empty()) return "wrong result of HandleEvent";
    if (refused) return untouched(answer) ? "" : "refused, but the output was written";
    if (event == 16) return "";
    std::int32_t id;
    std::memcpy(&id, answer.output.data(), sizeof id);
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

std::vector<LifeAnswer> live(algorithm::AlgBase& alg, const Life& life) {
  static Sinks sinks;  // the pipeline keeps pointers to it
  alg.SetLogCallback(&sinks);
  alg.SetDataCallback(&sinks);
  std::vector<LifeAnswer> answers;
  for (const LifeCall& call : life) answers.push_back(make(alg, call, sinks));
  return answers;
}

std::vector<std::uint8_t> bytesOf(const std::vector<LifeAnswer>& answers) {
  std::vector<std::uint8_t> bytes;
  const auto append = [&](const void* data, std::size_t size) {
    const auto* first = static_cast<const std::uint8_t*>(data);
    const std::uint64_t count = size;
    const auto* countBytes = reinterpret_cast<const std::uint8_t*>(&count);
    bytes.insert(bytes.end(), countBytes, countBytes + sizeof count);
    bytes.insert(bytes.end(), first, first + size);
  };
  for (const LifeAnswer& answer : answers) {
    append(&answer.result, sizeof answer.result);
    append(answer.output.data(), answer.output.size());
    append(answer.blocks.data(), answer.blocks.size() * sizeof(ResultBlock));
    for (const std::string& text : answer.logs) append(text.data(), text.size());
  }
  return bytes;
}

std::string brokenPromise(const Life& life, const std::vector<LifeAnswer>& answers) {
  Examiner examiner;
  for (std::size_t i = 0; i < life.size(); ++i) {
    const std::string problem = examiner.examine(life[i], answers.at(i));
    if (!problem.empty()) return "call " + std::to_string(i) + ": " + problem;
  }
  return "";
}

}  // namespace testing_support
