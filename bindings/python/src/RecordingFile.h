// A recording that Python holds: a file, or what a replay left in memory.
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

  /// A recording that no name leads to: the file may lose its own from here on.
  static std::unique_ptr<RecordingFile> inMemory(const std::string& path);

  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;

  /// Writes the recording's bytes to a file that is not there yet; what goes wrong names `name`.
  void save(const std::string& path, const std::string& name) const;

  const recording::RecordingReader& reader() const { return reader_; }
  std::mutex& mutex() const { return mutex_; }
  bool isInMemory() const { return memory_.number >= 0; }

 private:
  RecordingFile(const std::string& path, int memory) : memory_(memory), reader_(path) {}

  struct Descriptor {
    explicit Descriptor(int opened) : number(opened) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    const int number;
  };

  Descriptor memory_{-1};  ///< of a recording in memory
  recording::RecordingReader reader_;
  mutable std::mutex mutex_;
};

}  // namespace bindings
