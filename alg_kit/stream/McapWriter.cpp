#include <alg_kit/stream/McapWriter.h>

#include <alg_kit/recording/Checksum.h>

#include <algorithm>
#include <utility>

namespace stream {
namespace {

constexpr std::string_view kMagic("\x89MCAP0\r\n", 8);

enum Opcode : int {
  kHeader = 0x01,
  kFooter = 0x02,
  kSchema = 0x03,
  kChannel = 0x04,
  kMessage = 0x05,
  kChunk = 0x06,
  kMessageIndex = 0x07,
  kChunkIndex = 0x08,
  kStatistics = 0x0B,
  kSummaryOffset = 0x0E,
  kDataEnd = 0x0F,
};

/// A record's content, field by field.
class Content {
 public:
  template <typename Number>
  Content& number(Number value) {
    const auto bits = static_cast<std::uint64_t>(value);
    for (std::size_t i = 0; i < sizeof(Number); ++i)
      bytes_ += static_cast<char>(bits >> 8 * i & 0xFF);
    return *this;
  }
  Content& text(std::string_view text) {
    number(static_cast<std::uint32_t>(text.size()));
    bytes_ += text;
    return *this;
  }
  Content& raw(std::string_view bytes) {
    bytes_ += bytes;
    return *this;
  }
  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

template <typename Value>
Content mapOf(const std::map<std::uint16_t, Value>& map) {
  Content items;
  for (const auto& [key, value] : map) items.number(key).number(std::uint64_t{value});
  return items;
}

std::string recordOf(int opcode, std::string_view content) {
  return Content()
      .number(static_cast<std::uint8_t>(opcode))
      .number(std::uint64_t{content.size()})
      .raw(content)
      .bytes();
}

}  // namespace

void McapWriter::Range::add(std::uint64_t time) {
  start = any ? std::min(start, time) : time;
  end = any ? std::max(end, time) : time;
  any = true;
}

McapWriter::McapWriter(std::ostream& out, std::size_t chunkBytes)
    : out_(out), chunkBytes_(chunkBytes) {
  put(kMagic);
  putRecord(kHeader, Content().text("").text("alg_factory").bytes());
}

std::uint16_t McapWriter::addChannel(std::string_view topic, std::string_view schemaName,
                                     std::string_view jsonSchema) {
  const auto id = static_cast<std::uint16_t>(counts_.size() + 1);
  counts_[id] = 0;
  const std::string schema = recordOf(
      kSchema, Content().number(id).text(schemaName).text("jsonschema").text(jsonSchema).bytes());
  const std::string channel = recordOf(
      kChannel,
      Content().number(id).number(id).text(topic).text("json").number(std::uint32_t{0}).bytes());
  schemas_ += schema;
  channels_ += channel;
  chunk_ += schema + channel;  // in the first chunk, before what needs them
  return id;
}

void McapWriter::write(std::uint16_t channel, std::uint64_t timeNs, std::string_view json) {
  index_[channel].push_back({timeNs, chunk_.size()});
  chunk_ += recordOf(kMessage, Content()
                                   .number(channel)
                                   .number(counts_[channel]++)
                                   .number(timeNs)
                                   .number(timeNs)
                                   .raw(json)
                                   .bytes());
  chunkTimes_.add(timeNs);
  times_.add(timeNs);
  if (chunk_.size() >= chunkBytes_) finishChunk();
}

void McapWriter::finishChunk() {
  ChunkFacts facts;
  facts.times = chunkTimes_;
  facts.offset = position_;
  facts.size = chunk_.size();
  facts.length = putRecord(kChunk, Content()
                                       .number(chunkTimes_.start)
                                       .number(chunkTimes_.end)
                                       .number(facts.size)
                                       .number(recording::Checksum::ofRaw(chunk_))
                                       .text("")
                                       .number(facts.size)
                                       .raw(chunk_)
                                       .bytes());
  facts.indexLength = 0;
  for (auto& [channel, entries] : index_) {
    Content items;
    for (const IndexEntry& entry : entries) items.number(entry.time).number(entry.offset);
    facts.indexOffsets[channel] = position_;
    facts.indexLength +=
        putRecord(kMessageIndex, Content().number(channel).text(items.bytes()).bytes());
  }
  chunks_.push_back(std::move(facts));
  chunk_.clear();
  index_.clear();
  chunkTimes_ = {};
}

void McapWriter::finish() {
  if (!chunk_.empty()) finishChunk();
  putRecord(kDataEnd, Content().number(std::uint32_t{0}).bytes());

  const std::uint64_t summaryStart = position_;
  Content summary, offsets;
  const auto addGroup = [&](Opcode opcode, const std::string& records) {
    if (records.empty()) return;
    offsets.raw(recordOf(kSummaryOffset, Content()
                                             .number(static_cast<std::uint8_t>(opcode))
                                             .number(summaryStart + summary.bytes().size())
                                             .number(std::uint64_t{records.size()})
                                             .bytes()));
    summary.raw(records);
  };
  addGroup(kSchema, schemas_);
  addGroup(kChannel, channels_);
  std::uint64_t messages = 0;
  for (const auto& [channel, count] : counts_) messages += count;
  addGroup(kStatistics,
           recordOf(kStatistics, Content()
                                     .number(messages)
                                     .number(static_cast<std::uint16_t>(counts_.size()))
                                     .number(static_cast<std::uint32_t>(counts_.size()))
                                     .number(std::uint32_t{0})
                                     .number(std::uint32_t{0})
                                     .number(static_cast<std::uint32_t>(chunks_.size()))
                                     .number(times_.start)
                                     .number(times_.end)
                                     .text(mapOf(counts_).bytes())
                                     .bytes()));
  std::string chunkIndexes;
  for (const ChunkFacts& chunk : chunks_)
    chunkIndexes += recordOf(kChunkIndex, Content()
                                              .number(chunk.times.start)
                                              .number(chunk.times.end)
                                              .number(chunk.offset)
                                              .number(chunk.length)
                                              .text(mapOf(chunk.indexOffsets).bytes())
                                              .number(chunk.indexLength)
                                              .text("")
                                              .number(chunk.size)
                                              .number(chunk.size)
                                              .bytes());
  addGroup(kChunkIndex, chunkIndexes);

  // The footer's checksum covers all from the summary's start up to itself.
  const std::uint64_t offsetStart = summaryStart + summary.bytes().size();
  const Content places = Content().number(summaryStart).number(offsetStart);
  const std::string footer = recordOf(kFooter, Content(places).number(std::uint32_t{0}).bytes());
  const std::string covered =
      summary.bytes() + offsets.bytes() + footer.substr(0, footer.size() - sizeof(std::uint32_t));
  put(covered);
  put(Content().number(recording::Checksum::ofRaw(covered)).bytes());
  put(kMagic);
}

void McapWriter::put(std::string_view bytes) {
  out_.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  position_ += bytes.size();
}

std::uint64_t McapWriter::putRecord(int opcode, std::string_view content) {
  const std::string record = recordOf(opcode, content);
  put(record);
  return record.size();
}

}  // namespace stream
