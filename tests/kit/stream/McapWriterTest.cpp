#include <alg_kit/stream/McapWriter.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

// The ecosystem's own reader checks whole files: tests/web/streams_test.py.

std::string fileOf(int messages, std::size_t chunkBytes) {
  std::ostringstream out;
  stream::McapWriter writer(out, chunkBytes);
  const auto channel = writer.addChannel("/t", "S", "{}");
  for (int i = 0; i < messages; ++i) writer.write(channel, static_cast<std::uint64_t>(i), "{}");
  writer.finish();
  return out.str();
}

int countOf(const std::string& file, int opcode) {
  int count = 0;
  for (std::size_t at = 8; at + 9 <= file.size() - 8;) {
    count += file[at] == opcode ? 1 : 0;
    std::uint64_t size = 0;
    for (std::size_t i = 8; i > 0; --i) size = size << 8 | static_cast<std::uint8_t>(file[at + i]);
    at += 9 + size;
  }
  return count;
}

TEST(McapWriter, AFileOfNothingIsAHeaderAnEndAndASummary) {
  std::ostringstream out;
  stream::McapWriter(out).finish();
  const std::string file = out.str();
  EXPECT_EQ(file.substr(0, 8), "\x89MCAP0\r\n");
  EXPECT_EQ(file.substr(file.size() - 8), "\x89MCAP0\r\n");
  EXPECT_EQ(countOf(file, 0x01), 1);
  EXPECT_EQ(countOf(file, 0x0F), 1);
  EXPECT_EQ(countOf(file, 0x06), 0) << "no chunk";
  EXPECT_EQ(countOf(file, 0x0B), 1);
  EXPECT_EQ(countOf(file, 0x02), 1);
}

TEST(McapWriter, EveryChunkHasItsIndex) {
  // A message is 9 + 22 + 2 bytes: four of them reach 128 bytes, after the schema and channel in
  // the first chunk.
  const std::string file = fileOf(40, 128);
  const int chunks = countOf(file, 0x06);
  EXPECT_GE(chunks, 10);
  EXPECT_EQ(countOf(file, 0x07), chunks);
  EXPECT_EQ(countOf(file, 0x08), chunks);
}

TEST(McapWriter, TheSameCallsGiveTheSameBytes) {
  EXPECT_EQ(fileOf(100, 500), fileOf(100, 500));
}

}  // namespace
