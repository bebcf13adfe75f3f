#include <tools/algtrack/terminal/OutputFile.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

namespace algtrack {

namespace fs = std::filesystem;

void checkOutputPath(const std::string& path, bool force) {
  std::error_code error;
  const auto status = fs::status(path, error);
  if (fs::is_directory(status))
    throw std::runtime_error(path + ": expected a file to write, found a directory");
  if (fs::exists(status) && !force)
    throw std::runtime_error(path +
                             ": expected no file of this name, found one (--force replaces it)");
  const fs::path folder = fs::path(path).parent_path();
  if (!folder.empty() && !fs::is_directory(folder, error))
    throw std::runtime_error(path + ": expected a folder " + folder.string() + ", found none");
}

void checkNotInput(const std::string& output, const std::string& input) {
  std::error_code error;
  if (fs::equivalent(output, input, error) && !error)
    throw std::runtime_error(output + ": expected an output, found the input of the same command");
}

std::string partialPath(const std::string& path) {
  return path + ".partial";
}

OutputFile::OutputFile(std::string path, bool force) : path_(std::move(path)) {
  checkOutputPath(path_, force);
  stream_.open(partialPath(path_), std::ios::binary | std::ios::trunc);
  if (!stream_)
    throw std::runtime_error(path_ + ": expected a file to write, found one that cannot be opened");
}

OutputFile::~OutputFile() {
  if (committed_) return;
  stream_.close();
  std::error_code error;
  fs::remove(partialPath(path_), error);
}

void OutputFile::commit() {
  stream_.close();
  if (!stream_) throw std::runtime_error(path_ + ": writing failed (is the disk full?)");
  std::error_code error;
  fs::rename(partialPath(path_), path_, error);
  if (error) throw std::runtime_error(path_ + ": writing failed: " + error.message());
  committed_ = true;
}

}  // namespace algtrack
