#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace fuzzing {

/// A file for readers that take a path, in memory where the system has a place for that. One name
/// for each process, overwritten by every input.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& name)
      : path_((std::filesystem::exists("/dev/shm") ? "/dev/shm/alg_fuzz_" : "/tmp/alg_fuzz_") +
              std::to_string(getpid()) + "_" + name) {}
  ~ScratchFile() {
    removeCompanions();
    std::remove(path_.c_str());
  }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  void write(const std::uint8_t* data, std::size_t size) const {
    removeCompanions();
    std::FILE* file = std::fopen(path_.c_str(), "wb");
    const bool written = file != nullptr && (size == 0 || std::fwrite(data, 1, size, file) == size);
    if (!written || std::fclose(file) != 0) {
      std::perror(path_.c_str());
      std::abort();
    }
  }

  const std::string& path() const { return path_; }

 private:
  /// What SQLite may leave beside a database.
  void removeCompanions() const {
    for (const char* ending : {"-wal", "-shm", "-journal"}) std::remove((path_ + ending).c_str());
  }

  std::string path_;
};

}  // namespace fuzzing
