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
std::uint32_t readU32(const std::uint8_t* from) {
  std::uint32_t value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

std::uint8_t at(const Frame& frame, int position) {
  return frame[static_cast<std::size_t>(position)];
}

int cameraOf(std::uint8_t header) {
  return header >> 4;
}

int idOf(std::uint8_t header) {
  return header & 0x0F;
}

/// @param left  bytes from the record's first to the check byte
RecordStep::Kind kindOf(std::uint8_t header, int left, int blobIdCount) {
  using Kind = RecordStep::Kind;
  const bool badCamera = cameraOf(header) > 1;
  const bool badId = idOf(header) >= blobIdCount;
  if (left >= kRecordSize && !badCamera && !badId) return Kind::kRecord;  // almost every step
  // The camera is looked at before the bound, so trailing bytes may count as a bad camera.
  if (badCamera) return Kind::kBadCamera;
  if (left <= 3) return Kind::kEnd;
  if (badId) return Kind::kBadId;
  // The unequal treatment of cut records is kept: hosts know these reports.
  return left <= 7 ? Kind::kCutMoments : Kind::kCutLast;
}

RawBlob readBlob(const std::uint8_t* record) {
  RawBlob blob;
  blob.id = static_cast<std::int8_t>(idOf(record[kHeaderOffset]));
  blob.weight = readU32(record) & 0xFFFFFFu;
  blob.sumX = readU32(record + 4);
  blob.sumY = readU32(record + 8);
  return blob;
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
  const std::uint8_t* const record = frame.data() + position;
  const std::uint8_t header = record[kHeaderOffset];
  RecordStep step;
  step.kind = kindOf(header, end - position, blobIdCount);
  step.camera = cameraOf(header);
  if (step.kind == Kind::kRecord) {
    step.blob = readBlob(record);
    step.advance = kRecordSize;
  } else if (step.kind == Kind::kBadCamera || step.kind == Kind::kBadId) {
    step.advance = 1;
  }
  return step;
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

  const std::uint8_t* record = frame.data() + start + kStartSize;
  const std::uint8_t* const checkByte = frame.data() + end;
  for (bool more = true; more && record < checkByte;) {
    const std::uint8_t header = record[kHeaderOffset];
    switch (kindOf(header, static_cast<int>(checkByte - record), blobIdCount)) {
      case Kind::kRecord:
        (cameraOf(header) == 0 ? left : right).emplace_back() = readBlob(record);
        record += kRecordSize;
        status = DecodeStatus::kNone;
        break;
      case Kind::kBadCamera:
      case Kind::kBadId:
        ++record;
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
