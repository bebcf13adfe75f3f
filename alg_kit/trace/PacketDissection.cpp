#include <alg_kit/trace/PacketDissection.h>

#include <algorithm>

namespace trace {
namespace {

using Kind = PacketPiece::Kind;

struct KindText {
  const char* key;
  const char* description;
};

constexpr KindText kKindTexts[kPieceKinds] = {
    {"leading", "bytes before the start word"},
    {"start", "start word"},
    {"record", "records"},
    {"bad-camera", "skipped: camera neither 0 nor 1"},
    {"bad-id", "skipped: id too large"},
    {"end", "left over before the check byte"},
    {"cut-moments", "cut record (within its first 8 bytes)"},
    {"cut-last", "cut record (within its last 4 bytes)"},
    {"check", "check byte"},
};

Kind kindOf(hid::RecordStep::Kind kind) {
  switch (kind) {
    case hid::RecordStep::Kind::kRecord:
      return Kind::kRecord;
    case hid::RecordStep::Kind::kBadCamera:
      return Kind::kBadCamera;
    case hid::RecordStep::Kind::kBadId:
      return Kind::kBadId;
    case hid::RecordStep::Kind::kEnd:
      return Kind::kEnd;
    case hid::RecordStep::Kind::kCutMoments:
      return Kind::kCutMoments;
    case hid::RecordStep::Kind::kCutLast:
      return Kind::kCutLast;
  }
  return Kind::kEnd;
}

}  // namespace

const char* describe(Kind kind) {
  return kKindTexts[static_cast<int>(kind)].description;
}

const char* keyOf(Kind kind) {
  return kKindTexts[static_cast<int>(kind)].key;
}

std::vector<PacketPiece> dissect(const hid::Frame& frame, int length, int blobIdCount,
                                 std::vector<PacketPiece> pieces) {
  pieces.clear();
  const auto add = [&](Kind kind, int offset, int size, const hid::RecordStep& step = {}) {
    if (size > 0) pieces.push_back({kind, offset, size, step});
  };
  // The last byte is the check byte, even where the start word was found to reach into it.
  const int end = length - 1;
  const int start = std::min(hid::findStart(frame, length), end);
  add(Kind::kLeading, 0, start);
  add(Kind::kStart, start, std::min(hid::kStartSize, end - start));
  for (int position = start + hid::kStartSize; position < end;) {
    const hid::RecordStep step = hid::readRecord(frame, position, end, blobIdCount);
    const int size = step.advance > 0 ? step.advance : end - position;
    add(kindOf(step.kind), position, size, step);
    position += size;
  }
  add(Kind::kCheck, end, 1);
  return pieces;
}

std::string refusalOf(const PacketPiece& piece, const hid::Frame& frame, int length,
                      int blobIdCount) {
  const auto header = [&] {
    const int at = piece.offset + hid::kHeaderOffset;
    char text[16];
    std::snprintf(text, sizeof text, "0x%02X", frame[static_cast<std::size_t>(at)]);
    return std::string("header ") + text + " at offset " + std::to_string(at) +
           (at >= length ? " (behind the packet: left by an earlier one)" : "");
  };
  const int id = frame[static_cast<std::size_t>(
                     std::min(piece.offset + hid::kHeaderOffset, hid::kFrameSize - 1))] &
                 0x0F;
  const std::string size = std::to_string(piece.size);
  switch (piece.kind) {
    case Kind::kBadCamera:
      return header() + ": camera " + std::to_string(piece.step.camera) +
             ", expected 0 or 1; goes on one byte further";
    case Kind::kBadId:
      return header() + ": id " + std::to_string(id) + ", expected below " +
             std::to_string(blobIdCount) + "; goes on one byte further";
    case Kind::kEnd:
      return size + " bytes left, too few for a header; dropped without a report";
    case Kind::kCutMoments:
      return size + " of 12 bytes; reported as a format error";
    case Kind::kCutLast:
      return size + " of 12 bytes; dropped without a report";
    default:
      return "";
  }
}

}  // namespace trace
