#include <bindings/python/src/RecordingFile.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

namespace bindings {

namespace fs = std::filesystem;

std::unique_ptr<RecordingFile> RecordingFile::inMemory(const std::string& path) {
  const auto fail = [&](const std::string& what) {
    return recording::RecordingError(path, what + ": " + std::strerror(errno));
  };
  const int memory = memfd_create("alg_factory recording", MFD_CLOEXEC);
  if (memory < 0) throw fail("expected memory for a recording, found none");
  struct Closing {
    int file;
    ~Closing() {
      if (file >= 0) close(file);
    }
  } closing{memory};
  std::ifstream from(path, std::ios::binary);
  std::vector<char> piece(1 << 20);
  while (from) {
    from.read(piece.data(), static_cast<std::streamsize>(piece.size()));
    const char* at = piece.data();
    for (std::streamsize left = from.gcount(); left > 0;) {
      const ssize_t written = write(memory, at, static_cast<std::size_t>(left));
      if (written < 0) throw fail("expected memory for a recording, found none");
      at += written;
      left -= written;
    }
  }
  if (!from.eof()) throw fail("reading failed");
  std::unique_ptr<RecordingFile> file(
      new RecordingFile("/proc/self/fd/" + std::to_string(memory), memory));
  closing.file = -1;
  return file;
}

RecordingFile::~RecordingFile() {
  if (memory_ >= 0) close(memory_);
}

void RecordingFile::save(const std::string& path, bool overwrite) const {
  if (!overwrite && fs::exists(path))
    throw recording::RecordingError(path, "expected a new name, found a file (overwrite=True)");
  // Complete, or not there at all.
  const std::string partial = path + ".part";
  std::error_code error;
  fs::copy_file(reader_.path(), partial, fs::copy_options::overwrite_existing, error);
  if (!error) fs::rename(partial, path, error);
  if (error) {
    const std::string problem = error.message();
    fs::remove(partial, error);
    throw recording::RecordingError(path, "writing failed: " + problem);
  }
}

}  // namespace bindings
