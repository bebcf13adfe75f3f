#include <tools/algtrack/PartialRecording.h>

#include <tools/algtrack/terminal/OutputFile.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

namespace algtrack {

PartialRecording::PartialRecording(std::string finalPath)
    : finalPath_(std::move(finalPath)), path_(partialPath(finalPath_)) {}

PartialRecording::~PartialRecording() {
  if (completed_) return;
  std::error_code error;
  for (const char* const suffix : {"", "-wal", "-shm"})
    std::filesystem::remove(path_ + suffix, error);
}

void PartialRecording::complete(const recording::RecorderStatus& status) {
  if (!status.error.empty() || status.dropped > 0)
    throw std::runtime_error(finalPath_ + ": writing failed: " + status.error);
  std::error_code error;
  // What a killed recorder left beside the file that is replaced would be taken for ours.
  for (const char* const suffix : {"-wal", "-shm"})
    std::filesystem::remove(finalPath_ + suffix, error);
  std::filesystem::rename(path_, finalPath_, error);
  if (error) throw std::runtime_error(finalPath_ + ": writing failed: " + error.message());
  completed_ = true;
}

}  // namespace algtrack
