#include <alg_kit/recording/Checksum.h>

#include <array>
#include <cstring>

namespace recording {
namespace {

constexpr std::size_t kMostAtOnce = 16;

/// table[0] takes one byte on; table[k] takes it k bytes further, so that many go at once.
constexpr std::array<std::array<std::uint32_t, 256>, kMostAtOnce> makeTables() {
  std::array<std::array<std::uint32_t, 256>, kMostAtOnce> tables{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t c = i;
    for (int bit = 0; bit < 8; ++bit) c = (c & 1) != 0 ? 0xEDB88320U ^ (c >> 1) : c >> 1;
    tables[0][i] = c;
  }
  for (std::size_t k = 1; k < kMostAtOnce; ++k)
    for (std::size_t i = 0; i < 256; ++i)
      tables[k][i] = tables[0][tables[k - 1][i] & 0xFF] ^ (tables[k - 1][i] >> 8);
  return tables;
}

constexpr auto kTables = makeTables();

/// The next `count` bytes at once, backwards: the first four need what came before them.
template <std::size_t count>
std::uint32_t advanced(std::uint32_t state, const std::uint8_t* bytes) {
  std::uint32_t next = count < 4 ? state >> 8 * count % 32 : 0;
  for (std::size_t i = count; i-- > 0;) {
    const std::uint32_t before = i < 4 ? state >> 8 * i : 0;
    next ^= kTables[count - 1 - i][(bytes[i] ^ before) & 0xFF];
  }
  return next;
}

void addCallback(Checksum& sum, const session::LogLine& log) {
  sum.add(std::int64_t{log.step});
  sum.add(std::int64_t{log.level});
  sum.addText(log.text);
  sum.add(std::int64_t{log.threw});
}

void addBytesOf(Checksum& sum, const session::Bytes& bytes) {
  if (bytes.empty())
    sum.addNothing();  // as it is stored
  else
    sum.addBytes(bytes.data(), bytes.size());
}

}  // namespace

std::uint32_t Checksum::ofRaw(std::string_view bytes) {
  Checksum sum;
  sum.feed(bytes.data(), bytes.size());
  return sum.value();
}

void Checksum::feed(const void* bytes, std::size_t size) {
  const auto* at = static_cast<const std::uint8_t*>(bytes);
  for (; size >= kMostAtOnce; size -= kMostAtOnce, at += kMostAtOnce)
    state_ = advanced<kMostAtOnce>(state_, at);
  for (; size > 0; --size, ++at) state_ = advanced<1>(state_, at);
}

void Checksum::feed(std::uint8_t type, std::uint64_t value) {
  std::array<std::uint8_t, 9> bytes{};
  bytes[0] = type;
  for (std::size_t i = 0; i < 8; ++i) bytes[1 + i] = static_cast<std::uint8_t>(value >> 8 * i);
  state_ = advanced<9>(state_, bytes.data());
}

void Checksum::add(std::int64_t value) {
  feed(1, static_cast<std::uint64_t>(value));
}

void Checksum::add(double value) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  feed(2, bits);
}

void Checksum::add(const std::optional<std::int64_t>& value) {
  if (value)
    add(*value);
  else
    addNothing();
}

void Checksum::addText(std::string_view text) {
  feed(3, text.size());
  feed(text.data(), text.size());
}

void Checksum::addBytes(const void* bytes, std::size_t size) {
  feed(4, size);
  feed(bytes, size);
}

void Checksum::addNothing() {
  constexpr std::uint8_t type = 0;
  feed(&type, 1);
}

std::uint32_t checksumOf(const session::Entry& entry) {
  const session::Call& call = entry.call;
  Checksum sum;
  sum.add(call.index);
  sum.add(call.parent);
  sum.add(std::int64_t{call.parentStep});
  sum.addText(session::nameOf(call.kind));
  for (const int value : {call.type, call.mode, call.offset, call.length})
    sum.add(std::int64_t{value});
  sum.add(std::int64_t{call.pointerGiven});
  sum.add(std::int64_t{call.outputGiven});
  addBytesOf(sum, call.payload);
  sum.add(call.returned ? std::optional<std::int64_t>(*call.returned) : std::nullopt);
  addBytesOf(sum, call.output);
  sum.add(call.startNs);
  sum.add(call.durationNs);
  for (const session::LogLine& log : entry.logs) addCallback(sum, log);
  for (const session::DeliveredBlock& delivered : entry.blocks) {
    sum.add(std::int64_t{delivered.step});
    sum.addBytes(&delivered.block, sizeof delivered.block);
    sum.add(std::int64_t{delivered.threw});
  }
  return sum.value();
}

std::uint32_t checksumOf(const session::TruthRow& row) {
  Checksum sum;
  sum.add(row.frame);
  sum.add(row.call);
  sum.add(row.timeNs);
  sum.add(std::int64_t{row.object});
  sum.add(std::int64_t{row.marker});
  for (const double coordinate : row.position) sum.add(coordinate);
  sum.add(std::int64_t{row.inLeft});
  sum.add(std::int64_t{row.inRight});
  return sum.value();
}

std::uint32_t checksumOf(std::string_view key, std::string_view value) {
  Checksum sum;
  sum.addText(key);
  sum.addText(value);
  return sum.value();
}

}  // namespace recording
