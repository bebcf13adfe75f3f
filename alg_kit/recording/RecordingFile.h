#pragma once

#include <functional>
#include <string>

namespace recording {

/// The name and the lock of a recording that is being written. The lock says to other recorders,
/// of this process or another, that the file has its writer; a forked child does not keep it.
class RecordingFile {
 public:
  /// Makes the file: `fill` gets the name of an empty file beside `path`, which takes the place of
  /// `path` once it returned. So a file of this name always has its content, a link is replaced and
  /// not followed, and of two that begin at the same moment one is refused.
  /// @throws RecordingError if there is a file that must stay, has its writer, or is a folder
  RecordingFile(const std::string& path, bool overwrite,
                const std::function<void(const std::string& unfinished)>& fill);

  /// Releases the lock. Close the database first.
  ~RecordingFile();
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;

  enum class Whereabouts {
    kHere,
    kMoved,    ///< the file lives on under another name
    kRemoved,  ///< nobody can open it any more
  };
  Whereabouts whereabouts() const;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
  int lock_ = -1;  ///< descriptor
};

/// The bytes that are free for `path`'s disk; a very large number where nobody knows.
unsigned long long freeBytes(const std::string& path);

}  // namespace recording
