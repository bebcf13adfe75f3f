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

void RecordingFile::save(const std::string& path, const std::string& name) const {
  const std::string from =
      isInMemory() ? "/proc/self/fd/" + std::to_string(memory_.number) : reader_.path();
  std::error_code error;
  fs::copy_file(from, path, error);
  if (error) throw recording::RecordingError(name, "writing failed: " + error.message());
}

}  // namespace bindings
