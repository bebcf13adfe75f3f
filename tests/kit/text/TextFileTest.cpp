#include <alg_kit/text/TextFile.h>

#include <gtest/gtest.h>

namespace {

// Found by fuzzing: the YAML parser quoted a line feed behind a backslash.
TEST(FileError, IsOneLineWhateverItsProblemQuotes) {
  const text::FileError error("rig.yaml", 3, "unknown escape character: \n\r\x7F\x01");
  EXPECT_STREQ(error.what(), "rig.yaml:3: unknown escape character: ????");
}

TEST(FileError, LeavesOtherCharactersAlone) {
  EXPECT_STREQ(text::FileError("a", 0, "found 3 \xC2\xB5m").what(), "a: found 3 \xC2\xB5m");
}

TEST(ReadTextFile, RefusesADeviceWhichHasNoEnd) {
  try {
    text::readTextFile("/dev/zero", "a calibration");
    FAIL() << "expected an error";
  } catch (const text::FileError& error) {
    EXPECT_STREQ(error.what(), "/dev/zero: expected a calibration, found a device or a pipe");
  }
}

}  // namespace
