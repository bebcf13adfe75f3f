#include <alg_kit/estimate/PacketBlobs.h>

namespace estimate {
namespace {

constexpr std::size_t kRecordBytes = 12;
constexpr std::uint8_t kStart[2] = {0xAA, 0x55};

double numberAt(const std::uint8_t* bytes, int count) {
  std::uint32_t value = 0;
  for (int i = 0; i < count; ++i) value |= static_cast<std::uint32_t>(bytes[i]) << (8 * i);
  return value;
}

}  // namespace

bool readPacket(const std::uint8_t* packet, std::size_t length, int ids, PacketBlobs& result) {
  result.count = 0;
  if (length < sizeof kStart + 1) return false;
  const std::size_t end = length - 1;  // of what the check byte covers
  std::uint8_t sum = 0;
  for (std::size_t i = 0; i < end; ++i) sum = static_cast<std::uint8_t>(sum + packet[i]);
  if (sum != packet[end]) return false;

  std::size_t at = 0;
  while (at + 1 < end && (packet[at] != kStart[0] || packet[at + 1] != kStart[1])) ++at;
  if (at + 1 >= end) return false;
  at += sizeof kStart;
  while (at + kRecordBytes <= end && result.count < kMostBlobs) {
    const std::uint8_t* const record = packet + at;
    Blob blob;
    blob.camera = record[3] >> 4;
    blob.id = record[3] & 0xF;
    if (blob.camera > 1 || blob.id >= ids) {
      ++at;  // as the library finds back into step
      continue;
    }
    blob.weight = numberAt(record, 3);
    blob.sumX = numberAt(record + 4, 4);
    blob.sumY = numberAt(record + 8, 4);
    if (blob.weight > 0) result.blobs[result.count++] = blob;
    at += kRecordBytes;
  }
  return true;
}

}  // namespace estimate
