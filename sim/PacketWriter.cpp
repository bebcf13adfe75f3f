#include <sim/PacketWriter.h>

#include <cstring>
#include <numeric>

namespace sim {
namespace {

template <typename Integer>
void append(Bytes& bytes, Integer value, int count) {
  for (int i = 0; i < count; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void appendFloat(Bytes& bytes, float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  append(bytes, bits, 4);
}

void appendPacket(Bytes& bytes, const std::vector<BlobRecord>& records) {
  bytes.push_back(0xAA);
  bytes.push_back(0x55);
  for (const BlobRecord& record : records) {
    append(bytes, record.weight, 3);
    bytes.push_back(
        static_cast<std::uint8_t>(static_cast<int>(record.camera) << 4 | (record.id & 0xF)));
    append(bytes, record.sumX, 4);
    append(bytes, record.sumY, 4);
  }
}

std::uint8_t sumOf(const Bytes& bytes) {
  return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0u));
}

}  // namespace

Bytes devicePacket(const std::vector<BlobRecord>& records, const Bytes& leading) {
  Bytes packet = leading;
  appendPacket(packet, records);
  return withCheckByte(std::move(packet));
}

void writeDevicePacket(const std::vector<BlobRecord>& records, Bytes& packet) {
  packet.clear();
  appendPacket(packet, records);
  packet.push_back(sumOf(packet));
}

Bytes withCheckByte(Bytes bytes) {
  bytes.push_back(sumOf(bytes));
  return bytes;
}

Bytes frameType2(std::uint32_t stamp, const Bytes& packet) {
  Bytes payload;
  payload.reserve(4 + packet.size());
  append(payload, stamp, 4);
  payload.insert(payload.end(), packet.begin(), packet.end());
  return payload;
}

void corruptByte(Bytes& packet, std::size_t position, std::uint8_t mask) {
  packet.at(position) ^= mask;
}

void spoilCheckByte(Bytes& packet) {
  if (!packet.empty()) packet.back() ^= 0xFF;
}

Bytes inertialPayload(const algorithm::InertialRecord& record) {
  Bytes payload(record.unused1, record.unused1 + sizeof record.unused1);
  payload.reserve(kInertialBytes);
  for (const float value : record.q) appendFloat(payload, value);
  for (const float value : record.p) appendFloat(payload, value);
  for (const std::int16_t count : record.accelerometer) append(payload, count, 2);
  for (const std::int16_t count : record.gyroscope) append(payload, count, 2);
  payload.insert(payload.end(), record.unused2, record.unused2 + sizeof record.unused2);
  return payload;
}

Bytes sideHintPayload(std::int32_t hint) {
  Bytes payload;
  append(payload, hint, 4);
  return payload;
}

}  // namespace sim
