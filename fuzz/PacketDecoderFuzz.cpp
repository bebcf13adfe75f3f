// The packet decoder alone: any packets, one after the other, against a second decoder written from
// the description of the format.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <alg_factory/api/LogSink.h>
#include <alg_factory/hid/HidProtocol.h>
#include <tests/support/ByteReader.h>
#include <tests/support/RawBlobCompare.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "PacketDecoderFuzz: %s\n", what);
  std::abort();
}

class Reports : public algorithm::LogSink {
 public:
  bool Log(int level, const char* message) override {
    if (level != 3) fail("a message of another level");
    messages.emplace_back(message);
    return true;
  }
  std::vector<std::string> messages;
};

struct Decoded {
  std::vector<hid::RawBlob> left, right;
  std::string message;
};

/// Decodes with positions and a status that each step sets, as docs/byte-formats.md puts it.
/// `frame` keeps what earlier packets left behind this one.
Decoded decodeByDescription(const Bytes& packet, int idCount, Bytes& frame) {
  static const char* const kMessages[] = {
      "alg: fpga: start byte error.\n", "alg: fpga: no buffer data error.\n",
      "alg: fpga: type bit format error.\n", "alg: fpga: buffer data format error.\n",
      "alg: fpga: check byte error.\n"};
  const std::size_t length = packet.size() < 512 ? packet.size() : 512;
  for (std::size_t i = 0; i < length; ++i) frame[i] = packet[i];
  const auto word = [&](std::size_t at) {
    return static_cast<std::uint32_t>(frame[at] + 256ull * frame[at + 1] +
                                      65536ull * frame[at + 2] + 16777216ull * frame[at + 3]);
  };

  Decoded result;
  int status = 0;
  std::size_t start = 0;
  while (start < length && !(frame[start] == 0xAA && frame[start + 1] == 0x55)) ++start;
  if (start < length) status = 1;
  const std::size_t n = length - 1;
  std::size_t pos = start + 2;
  while (pos < n) {
    const int camera = frame[pos + 3] / 16, id = frame[pos + 3] % 16;
    if (camera > 1) {
      status = 2;
      pos += 1;
      continue;
    }
    if (pos + 3 >= n) {
      status = -1;
      break;
    }
    if (id >= idCount) {
      status = 2;
      pos += 1;
      continue;
    }
    hid::RawBlob blob;
    blob.id = static_cast<std::int8_t>(id);
    blob.weight = word(pos) % 16777216;
    pos += 4;
    if (pos > n) {
      status = 3;
      break;
    }
    if (pos + 4 > n) {
      status = 3;
      break;
    }
    blob.sumX = word(pos);
    pos += 4;
    if (pos + 4 > n) {
      status = -1;
      break;
    }
    blob.sumY = word(pos);
    pos += 4;
    (camera == 0 ? result.left : result.right).push_back(blob);
    status = -1;
  }
  unsigned sum = 0;
  for (std::size_t i = 0; i < n; ++i) sum += frame[i];
  if (sum % 256 != frame[n]) status = 4;
  if (status >= 0) result.message = kMessages[status];
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  testing_support::ByteReader reader(data, size);
  const std::uint32_t productType = reader.take<std::uint8_t>() % 4;
  Bytes packet;
  std::vector<hid::RawBlob> left, right;
  Reports log;
  hid::HidProtocol protocol;
  protocol.init(productType);
  protocol.configure(&packet, &left, &right);
  protocol.setLogger(&log);

  Bytes frame(516);
  while (!reader.empty()) {
    // Short packets are as likely as long ones.
    const int kind = reader.below(4);
    const std::size_t length = kind == 0   ? reader.below(16)
                               : kind == 3 ? reader.take<std::uint16_t>() % 1024
                                           : reader.below(256);
    Bytes bytes = reader.bytes(length);
    if (reader.below(4) != 0 && bytes.size() > 2) {  // a whole frame around the bytes
      bytes[0] = 0xAA;
      bytes[1] = 0x55;
      std::uint8_t sum = 0;
      const std::size_t end = bytes.size() < 512 ? bytes.size() - 1 : 511;
      for (std::size_t i = 0; i < end; ++i) sum = static_cast<std::uint8_t>(sum + bytes[i]);
      bytes[end] = sum;
    }

    left.clear();
    right.clear();
    log.messages.clear();
    packet = bytes;
    const bool result = protocol.process();
    if (result == bytes.empty()) fail("wrong result");
    if (bytes.empty()) {
      if (!left.empty() || !right.empty() || !log.messages.empty()) fail("an empty packet decoded");
      continue;
    }
    const Decoded expected = decodeByDescription(bytes, productType == 2 ? 6 : 3, frame);
    if (left != expected.left || right != expected.right) fail("other records than described");
    if (left.size() + right.size() > 42) fail("more records than a packet holds");
    const bool sameReport = expected.message.empty()
                                ? log.messages.empty()
                                : log.messages == std::vector<std::string>{expected.message};
    if (!sameReport) fail("another report than described");
  }
  return 0;
}
