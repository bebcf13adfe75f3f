#include <tools/algtrack/PartialRecording.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace algtrack {

namespace fs = std::filesystem;

namespace {

constexpr const char* kParts[] = {"", "-wal", "-shm"};  // of a recording that is being written

std::string temporaryFolder() {
  std::string name = (fs::temp_directory_path() / "algtrack-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr)
    throw std::runtime_error(name + ": expected room for temporary files, found none");
  return name;
}

void copyTo(const OutputPlace& place, const std::string& path) {
  OutputFile file(place.name, false);
  file.stream() << std::ifstream(path, std::ios::binary).rdbuf();
  file.commit();
}

}  // namespace

PartialRecording::PartialRecording(const std::string& finalName, bool force,
                                   const std::string& suffix)
    : place_(outputPlace(finalName, force)) {
  if (place_.kind != OutputPlace::Kind::kFile) {
    folder_ = temporaryFolder();
    unfinished_.add(folder_);
    path_ = folder_ + "/recording";
  } else {
    path_ = place_.path + suffix;
    makePartialFile(path_, force);
  }
  for (const char* const part : kParts) unfinished_.add(path_ + part);
}

PartialRecording::~PartialRecording() {
  if (!completed_) removeAll();
}

void PartialRecording::removeAll() const {
  std::error_code error;
  for (const char* const part : kParts) fs::remove(path_ + part, error);
  if (!folder_.empty()) fs::remove(folder_, error);
}

void PartialRecording::complete(const recording::RecorderStatus& status) {
  if (!status.error.empty() || status.dropped > 0)
    throw std::runtime_error(place_.name + ": writing failed: " + status.error);
  complete();
}

void PartialRecording::complete() {
  stopIfInterrupted();
  if (!folder_.empty()) return copyTo(place_, path_);
  std::error_code error;
  // What a killed recorder left beside the file that is replaced would be taken for ours.
  for (const char* const suffix : {"-wal", "-shm"}) fs::remove(place_.path + suffix, error);
  unfinished_.finish();  // once it is renamed, the name may be another program's
  fs::rename(path_, place_.path, error);
  if (error) throw std::runtime_error(place_.name + ": writing failed: " + error.message());
  completed_ = true;
  noteWritten(place_.name);
}

}  // namespace algtrack
