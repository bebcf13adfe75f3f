#pragma once

#include <fstream>
#include <string>

namespace algtrack {

/// Refuses a path that cannot be an output: a directory, a folder that does not exist, or, unless
/// `force`, a file that exists.
/// @throws std::runtime_error in one line
void checkOutputPath(const std::string& path, bool force);

/// Refuses to write over one of a command's own inputs, --force or not.
/// @throws std::runtime_error in one line
void checkNotInput(const std::string& output, const std::string& input);

/// Where an output is written until it is complete: beside `path`, on the same disk.
std::string partialPath(const std::string& path);

/// A text or binary output that appears under its name only when it is complete: written beside it
/// and renamed by `commit`. What was not committed is removed, and an older file stays.
class OutputFile {
 public:
  /// @throws std::runtime_error as checkOutputPath, or when it cannot be opened
  OutputFile(std::string path, bool force);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  std::ostream& stream() { return stream_; }
  const std::string& path() const { return path_; }

  /// @throws std::runtime_error if anything could not be written
  void commit();

 private:
  std::string path_;
  std::ofstream stream_;
  bool committed_ = false;
};

}  // namespace algtrack
