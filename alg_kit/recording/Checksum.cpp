#include <alg_kit/recording/Checksum.h>

#include <alg_kit/recording/Crc32.h>

#include <array>
#include <cstring>

namespace recording {
namespace {

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

std::uint32_t Checksum::value() const {
  return ~crc32After(state_, gathered_.data(), used_);
}

void Checksum::flush() {
  state_ = crc32After(state_, gathered_.data(), used_);
  used_ = 0;
}

void Checksum::feed(const void* bytes, std::size_t size) {
  if (size > gathered_.size() - used_) flush();
  if (size > gathered_.size()) {
    state_ = crc32After(state_, static_cast<const std::uint8_t*>(bytes), size);
    return;
  }
  std::memcpy(gathered_.data() + used_, bytes, size);
  used_ += size;
}

void Checksum::feed(std::uint8_t type, std::uint64_t value) {
  constexpr std::size_t kSize = 1 + sizeof value;
  if (kSize > gathered_.size() - used_) flush();
  gathered_[used_] = type;
  std::memcpy(gathered_.data() + used_ + 1, &value, sizeof value);  // little-endian, as every host
  used_ += kSize;
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
