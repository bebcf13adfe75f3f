#include <alg_kit/text/TextFile.h>
#include <tests/support/ScratchFolder.h>

#include <gtest/gtest.h>

#include <string>

namespace {

// Found by fuzzing: the YAML parser quoted a line feed behind a backslash.
TEST(FileError, IsOneLineWhateverItsProblemQuotes) {
  const text::FileError error("rig.yaml", 3, "unknown escape character: \n\r\x7F\x01");
  EXPECT_STREQ(error.what(), "rig.yaml:3: unknown escape character: ????");
}

TEST(FileError, LeavesOtherCharactersAlone) {
  EXPECT_STREQ(text::FileError("a", 0, "found 3 \xC2\xB5m").what(), "a: found 3 \xC2\xB5m");
}

TEST(FileError, IsOfABearableLength) {
  EXPECT_LT(std::string(text::FileError("a", 0, std::string(6000000, 'x')).what()).size(), 1100u);
}

TEST(ReadTextFile, RefusesWhatHasNoEndAndWhatIsTooLarge) {
  const auto problem = [](const std::string& path, std::size_t largest) {
    try {
      text::readTextFile(path, "a text", largest);
    } catch (const text::FileError& error) {
      return std::string(error.what());
    }
    return std::string("no problem");
  };
#if !defined(_WIN32)  // there is no such file there
  EXPECT_EQ(problem("/dev/zero", 10), "/dev/zero: expected a text, found a device or a pipe");
#endif
  const ScratchFolder folder;
  const std::string path = folder.write("t", "12345");
  EXPECT_EQ(problem(path, 5), "no problem");
  EXPECT_EQ(problem(path, 4), path + ": expected a text of at most 4 bytes, found 5");
  const std::string recording =
      folder.write("r", std::string("SQLite format 3\0", 16) + std::string(100, 'x'));
  EXPECT_EQ(problem(recording, 50),
            recording + ": expected a text, found a recording, or another database");
}

TEST(NestingOf, CountsBracketsOutsideOfQuotes) {
  EXPECT_EQ(text::nestingOf(""), 0u);
  EXPECT_EQ(text::nestingOf("[1, {\"a\": [2]}], [3]"), 3u);
  EXPECT_EQ(text::nestingOf("[\"[[[\\\"[[\"]"), 1u);
  EXPECT_EQ(text::nestingOf(std::string(100000, '[')), 100000u);
}

TEST(Escaped, LetsNoControlCharacterThroughAndKeepsWords) {
  EXPECT_EQ(text::escaped("3 \xC2\xB5m"), "3 \xC2\xB5m");
  EXPECT_EQ(text::escaped("a\x1B[2J\nb\\"), "a\\x1b[2J\\nb\\");
  // A line separator, an override and an isolate of the direction; a dash of the same block.
  EXPECT_EQ(text::escaped("\u2028\u202E\u2067\u2014"),
            "\\xe2\\x80\\xa8\\xe2\\x80\\xae\\xe2\\x81\\xa7\u2014");
  EXPECT_EQ(text::escaped("\xC2\x9B"
                          "2J\xFF"),
            "\\xc2\\x9b2J\\xff");
  EXPECT_EQ(text::escaped("\xC0\xAF\xED\xA0\x80"), "\\xc0\\xaf\\xed\\xa0\\x80");
  EXPECT_EQ(text::escaped("abcdef", 3), "abc...");
}

}  // namespace
