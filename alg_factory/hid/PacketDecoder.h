// The device packet: leading bytes, start word AA 55, 12-byte blob records, check byte.
// docs/byte-formats.md describes it byte by byte.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <alg_factory/api/Constants.h>
#include <alg_factory/hid/RawBlob.h>

namespace hid {

constexpr int kFrameSize = algorithm::kMaxPacketSize;
/// Positions past the frame that decoding may look at; they always read as zero.
constexpr int kFramePadding = 4;
/// A full frame and the four bytes that a stamped packet brings along.
constexpr std::size_t kLongestInput = kFrameSize + algorithm::kStampSize;
using Frame = std::array<std::uint8_t, kFrameSize + kFramePadding>;

constexpr std::uint8_t kStartByte0 = 0xAA;
constexpr std::uint8_t kStartByte1 = 0x55;
constexpr int kStartSize = 2;
constexpr int kRecordSize = 12;
/// As many records as a frame holds: no list of one frame is longer.
constexpr std::size_t kMaxRecords = (kFrameSize - kStartSize - 1) / kRecordSize;
constexpr int kHeaderOffset = 3;  ///< of the byte that holds camera and id, within a record

/// What decoding reports. Values index the messages of `messageOf`.
enum class DecodeStatus {
  kNone = -1,
  kNoStart = 0,
  kNoData = 1,
  kBadType = 2,
  kCutRecord = 3,
  kBadCheck = 4,
};

/// The log text of a status; null for kNone.
const char* messageOf(DecodeStatus status);

/// Position of the first start word in the `length` bytes of the packet, or `length`.
int findStart(const Frame& frame, int length);

/// One step of the record loop.
struct RecordStep {
  enum class Kind {
    kRecord,      ///< a whole record: `camera` and `blob` are set
    kBadCamera,   ///< the header's camera is neither 0 nor 1: slide on by one byte
    kBadId,       ///< the header's id is not below the count: slide on by one byte
    kEnd,         ///< too few bytes for a header: decoding ends quietly
    kCutMoments,  ///< cut within its first 8 bytes: reported
    kCutLast,     ///< cut within its last 4 bytes: dropped quietly
  };
  Kind kind;
  int camera = 0;  ///< 0 left, 1 right
  RawBlob blob;
  int advance = 0;  ///< bytes to move on before the next step
};

/// Examines the record at `position`, which is below `end`, the position of the check byte.
RecordStep readRecord(const Frame& frame, int position, int end, int blobIdCount);

/// Sum modulo 256 of the first `end` bytes.
std::uint8_t checkSum(const Frame& frame, int end);

/// Decodes the first `length` (1 to 512) bytes of `frame`, appending the records of each camera.
/// The bytes behind `length` are what an earlier packet left there; the decoder looks at up to
/// three of them on purpose (kept: devices and hosts in the field rely on the resulting reports).
DecodeStatus decode(const Frame& frame, int length, int blobIdCount, std::vector<RawBlob>& left,
                    std::vector<RawBlob>& right);

}  // namespace hid
