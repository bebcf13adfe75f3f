#pragma once

#include <alg_kit/text/TextFile.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace testing_support {

/// A file that lives as long as a test.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& content) {
    const auto* const info = testing::UnitTest::GetInstance()->current_test_info();
    path_ = std::filesystem::temp_directory_path() /
            ("alg_sim_" + std::string(info->test_suite_name()) + "_" + info->name() + "_" +
             std::to_string(++count()) + ".txt");
    std::ofstream(path_, std::ios::binary) << content;
  }
  ~TemporaryFile() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  std::string path() const { return path_.string(); }

 private:
  static int& count() {
    static int value = 0;
    return value;
  }
  std::filesystem::path path_;
};

/// The message of the text::FileError that a call throws; "" and a failure if it throws none.
template <typename Call>
std::string messageOf(Call call) {
  try {
    call();
  } catch (const text::FileError& error) {
    const std::string message = error.what();
    EXPECT_EQ(message.find('\n'), std::string::npos) << "the message must be one line: " << message;
    return message;
  }
  ADD_FAILURE() << "expected a text::FileError";
  return {};
}

/// Path of a measured file, or "" where it is absent. ALG_TEST_DATA in the environment overrides
/// the folder that was configured.
inline std::string measuredFile(const std::string& name) {
  const char* const folder = std::getenv("ALG_TEST_DATA");
#if defined(ALG_TEST_DATA)
  const std::string base = folder != nullptr ? folder : ALG_TEST_DATA;
#else
  const std::string base = folder != nullptr ? folder : "";
#endif
  const auto path = std::filesystem::path(base) / name;
  return std::filesystem::is_regular_file(path) ? path.string() : std::string();
}

}  // namespace testing_support
