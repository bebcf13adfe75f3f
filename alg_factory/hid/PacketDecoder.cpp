#include <alg_factory/hid/PacketDecoder.h>

#include <cstring>

namespace hid {

namespace {

constexpr const char* kMessages[] = {
    "alg: fpga: start byte error.\n",      "alg: fpga: no buffer data error.\n",
    "alg: fpga: type bit format error.\n", "alg: fpga: buffer data format error.\n",
    "alg: fpga: check byte error.\n",
};

/// Little-endian, as every platform of the library is.
std::uint32_t readU32(const Frame& frame, int position) {
  std::uint32_t value;
  std::memcpy(&value, frame.data() + position, sizeof value);
  return value;
}

std::uint8_t at(const Frame& frame, int position) {
  return frame[static_cast<std::size_t>(position)];
}

}  // namespace

const char* messageOf(DecodeStatus status) {
  return status == DecodeStatus::kNone ? nullptr : kMessages[static_cast<int>(status)];
}

int findStart(const Frame& frame, int length) {
  for (int i = 0; i < length; ++i) {
    if (at(frame, i) == kStartByte0 && at(frame, i + 1) == kStartByte1) return i;
  }
  return length;
}

RecordStep readRecord(const Frame& frame, int position, int end, int blobIdCount) {
  using Kind = RecordStep::Kind;
  const std::uint8_t header = at(frame, position + kHeaderOffset);
  const int camera = header >> 4;
  const int id = header & 0x0F;

  // The camera is looked at before the bound, so trailing bytes may count as a bad camera.
  if (camera > 1) return {Kind::kBadCamera, camera, {}, 1};
  const int left = end - position;
  if (left <= 3) return {Kind::kEnd, camera, {}, 0};
  if (id >= blobIdCount) return {Kind::kBadId, camera, {}, 1};
  // The unequal treatment of cut records is kept: hosts know these reports.
  if (left <= 7) return {Kind::kCutMoments, camera, {}, 0};
  if (left <= 11) return {Kind::kCutLast, camera, {}, 0};

  RawBlob blob;
  blob.id = static_cast<std::int8_t>(id);
  blob.weight = readU32(frame, position) & 0xFFFFFFu;
  blob.sumX = readU32(frame, position + 4);
  blob.sumY = readU32(frame, position + 8);
  return {Kind::kRecord, camera, blob, kRecordSize};
}

std::uint8_t checkSum(const Frame& frame, int end) {
  std::uint8_t sum = 0;
  for (int i = 0; i < end; ++i) sum = static_cast<std::uint8_t>(sum + at(frame, i));
  return sum;
}

DecodeStatus decode(const Frame& frame, int length, int blobIdCount, std::vector<RawBlob>& left,
                    std::vector<RawBlob>& right) {
  using Kind = RecordStep::Kind;
  const int start = findStart(frame, length);
  DecodeStatus status = start < length ? DecodeStatus::kNoData : DecodeStatus::kNoStart;
  const int end = length - 1;

  std::vector<RawBlob>* const outputs[] = {&left, &right};
  bool more = true;
  for (int position = start + kStartSize; more && position < end;) {
    const RecordStep step = readRecord(frame, position, end, blobIdCount);
    position += step.advance;
    switch (step.kind) {
      case Kind::kRecord:
        outputs[step.camera]->push_back(step.blob);
        status = DecodeStatus::kNone;
        break;
      case Kind::kBadCamera:
      case Kind::kBadId:
        status = DecodeStatus::kBadType;
        break;
      case Kind::kEnd:
      case Kind::kCutLast:
        status = DecodeStatus::kNone;
        more = false;
        break;
      case Kind::kCutMoments:
        status = DecodeStatus::kCutRecord;
        more = false;
        break;
    }
  }

  if (checkSum(frame, end) != at(frame, end)) status = DecodeStatus::kBadCheck;
  return status;
}

}  // namespace hid
