// A recording that Python holds: a file, or bytes in memory.
#pragma once

#include <alg_kit/recording/Recording.h>

#include <memory>
#include <mutex>
#include <string>

namespace bindings {

/// Opening changes nothing on disk. For any thread: calls wait for each other.
class RecordingFile {
 public:
  explicit RecordingFile(const std::string& path) : reader_(path) {}

  /// The file's bytes, copied to memory that has no name; the file is not needed any more.
  static std::unique_ptr<RecordingFile> inMemory(const std::string& path);

  ~RecordingFile();
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;

  /// Writes the recording's bytes under a name that does not exist yet, or replaces it.
  void save(const std::string& path, bool overwrite) const;

  const recording::RecordingReader& reader() const { return reader_; }
  std::mutex& mutex() const { return mutex_; }
  bool isInMemory() const { return memory_ >= 0; }

 private:
  RecordingFile(const std::string& path, int memory) : reader_(path), memory_(memory) {}

  recording::RecordingReader reader_;
  mutable std::mutex mutex_;
  int memory_ = -1;  ///< file descriptor
};

}  // namespace bindings
