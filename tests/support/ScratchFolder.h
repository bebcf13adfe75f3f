#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

/// A folder of the running test's own, empty at the start and removed at the end.
class ScratchFolder {
 public:
  ScratchFolder() {
    const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
    folder_ = std::filesystem::path(testing::TempDir()) /
              (std::string("alg_tools_") + test->test_suite_name() + "_" + test->name());
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
  ~ScratchFolder() {
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::string path(const std::string& name) const { return (folder_ / name).string(); }

  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }

 private:
  std::filesystem::path folder_;
};
