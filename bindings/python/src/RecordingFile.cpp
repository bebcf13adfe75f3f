#include <bindings/python/src/RecordingFile.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace bindings {

namespace fs = std::filesystem;

RecordingFile::Descriptor::~Descriptor() {
  if (number >= 0) close(number);
}

std::unique_ptr<RecordingFile> RecordingFile::inMemory(const std::string& path) {
  const int memory = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (memory < 0) throw recording::RecordingError(path, std::strerror(errno));
  return std::unique_ptr<RecordingFile>(new RecordingFile(path, memory));
}

void RecordingFile::save(const std::string& path, bool overwrite) const {
  if (!overwrite && fs::exists(path))
    throw recording::RecordingError(path, "expected a new name, found a file (overwrite=True)");
  const std::string from =
      isInMemory() ? "/proc/self/fd/" + std::to_string(memory_.number) : reader_.path();
  // Complete, or not there at all.
  const std::string partial = path + ".part";
  std::error_code error;
  fs::copy_file(from, partial, fs::copy_options::overwrite_existing, error);
  if (!error) fs::rename(partial, path, error);
  if (error) {
    const std::string problem = error.message();
    fs::remove(partial, error);
    throw recording::RecordingError(path, "writing failed: " + problem);
  }
}

}  // namespace bindings
