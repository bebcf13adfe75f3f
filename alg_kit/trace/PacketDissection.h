// A device packet taken apart byte by byte, with the library's own record reader.
#pragma once

#include <alg_factory/hid/PacketDecoder.h>

#include <string>
#include <vector>

namespace trace {

/// A run of bytes with one meaning. The pieces of a packet cover it without gap or overlap.
struct PacketPiece {
  enum class Kind {
    kLeading,     ///< before the start word: skipped
    kStart,       ///< start word
    kRecord,      ///< a whole record: `step` holds it
    kBadCamera,   ///< one byte skipped: read as a record here, its camera would be neither 0 nor 1
    kBadId,       ///< one byte skipped: read as a record here, its id would be too large
    kEnd,         ///< too few bytes for a record's header: left over quietly
    kCutMoments,  ///< a record cut within its first 8 bytes
    kCutLast,     ///< a record cut within its last 4 bytes
    kCheck,       ///< check byte
  };
  Kind kind = Kind::kLeading;
  int offset = 0;
  int size = 0;
  hid::RecordStep step{};  ///< of kRecord, kBadCamera and kBadId
};

constexpr int kPieceKinds = static_cast<int>(PacketPiece::Kind::kCheck) + 1;

/// For people: "bytes before the start word".
const char* describe(PacketPiece::Kind kind);

/// For programs: "leading".
const char* keyOf(PacketPiece::Kind kind);

/// @param frame   as the decoder holds it: the bytes of earlier packets may stand behind `length`
/// @param length  1 to 512
/// @param pieces  only its storage is used
std::vector<PacketPiece> dissect(const hid::Frame& frame, int length, int blobIdCount,
                                 std::vector<PacketPiece> pieces = {});

/// Why the decoder did not take the bytes of a piece, with what was found; empty for pieces that it
/// took.
std::string refusalOf(const PacketPiece& piece, const hid::Frame& frame, int length,
                      int blobIdCount);

}  // namespace trace
