#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace stream {

/// Writes an MCAP file: chunks (not compressed) with an index each, then a summary that repeats
/// schemas and channels, lists the chunks and counts the messages. The same calls give the same
/// bytes. Memory: a chunk, and 100 to 200 bytes of index for each one written.
///
/// Each record is an opcode, a length of 64 bits and its content, little-endian; the numbers and
/// the order of the fields are those of https://mcap.dev.
class McapWriter {
 public:
  /// Begins the file.
  /// @param out  not owned; whether it can be written is the caller's to check
  explicit McapWriter(std::ostream& out, std::size_t chunkBytes = 1024 * 1024);

  /// A channel of messages in JSON with its schema. Before the first message.
  /// @return its id
  std::uint16_t addChannel(std::string_view topic, std::string_view schemaName,
                           std::string_view jsonSchema);

  /// @param timeNs  of the message, for both of its times
  void write(std::uint16_t channel, std::uint64_t timeNs, std::string_view json);

  /// Completes the file. Nothing may follow.
  void finish();

 private:
  struct IndexEntry {
    std::uint64_t time, offset;
  };
  struct Range {
    std::uint64_t start = 0, end = 0;  ///< times; 0 without messages
    bool any = false;
    void add(std::uint64_t time);
  };
  struct ChunkFacts {
    Range times;
    std::uint64_t offset, length, indexLength, size;
    std::map<std::uint16_t, std::uint64_t> indexOffsets;
  };

  void put(std::string_view bytes);
  std::uint64_t putRecord(int opcode, std::string_view content);
  void finishChunk();

  std::ostream& out_;
  const std::size_t chunkBytes_;
  std::uint64_t position_ = 0;
  std::string schemas_, channels_;  ///< their records
  std::string chunk_;               ///< the records of the present one
  Range chunkTimes_, times_;
  std::map<std::uint16_t, std::vector<IndexEntry>> index_;  ///< of the present chunk
  std::map<std::uint16_t, std::uint32_t> counts_;           ///< messages by channel
  std::vector<ChunkFacts> chunks_;
};

}  // namespace stream
