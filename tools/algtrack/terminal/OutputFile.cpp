#include <tools/algtrack/terminal/OutputFile.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace algtrack {

namespace fs = std::filesystem;

namespace {

constexpr int kMostLinks = 40;  // as the system itself follows

std::string lastSystemError() {
  return std::generic_category().message(errno);
}

/// Devices and pipes have no path of their own to compare: the system's numbers tell.
bool sameAsStandardOutput(const std::string& path) {
  struct stat named {
  }, standard{};
  return stat(path.c_str(), &named) == 0 && fstat(STDOUT_FILENO, &standard) == 0 &&
         named.st_dev == standard.st_dev && named.st_ino == standard.st_ino;
}

std::string endOfLinks(const std::string& name) {
  fs::path path = name;
  std::error_code error;
  for (int links = 0; fs::is_symlink(path, error); ++links) {
    const fs::path target = links < kMostLinks ? fs::read_symlink(path, error) : fs::path();
    if (target.empty() || error)
      throw std::runtime_error(name +
                               ": expected a file to write, found a link that leads nowhere");
    path = path.parent_path() / target;  // an absolute target stands for itself
  }
  return path.string();
}

[[noreturn]] void refuse(const std::string& name, const std::string& found) {
  throw std::runtime_error(name + ": expected a file to write, found " + found);
}

bool sameFile(const OutputPlace& a, const OutputPlace& b) {
  if (a.isStandardOutput() || b.isStandardOutput())
    return a.isStandardOutput() && b.isStandardOutput();
  std::error_code error;
  struct stat first {
  }, second{};
  if (stat(a.path.c_str(), &first) == 0 && stat(b.path.c_str(), &second) == 0)
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
  return fs::weakly_canonical(fs::absolute(a.path), error) ==
         fs::weakly_canonical(fs::absolute(b.path), error);
}

}  // namespace

OutputPlace outputPlace(const std::string& name, bool force) {
  using Kind = OutputPlace::Kind;
  if (name.empty()) throw std::runtime_error("expected the name of an output, found an empty one");
  if (name == "-" || sameAsStandardOutput(name)) return {Kind::kStandardOutput, name, name};
  const std::string path = endOfLinks(name);
  std::error_code error;
  const auto status = fs::status(path, error);
  if (status.type() == fs::file_type::none)
    throw std::runtime_error(name + ": expected a file to write: " + error.message());
  if (fs::is_directory(status)) refuse(name, "a directory");
  if (fs::is_block_file(status)) refuse(name, "a block device");
  if (fs::is_socket(status)) refuse(name, "a socket");
  if (fs::is_character_file(status) || fs::is_fifo(status)) return {Kind::kDevice, name, path};
  if (fs::exists(status) && !force)
    throw std::runtime_error(name +
                             ": expected no file of this name, found one (--force replaces it)");
  const fs::path folder = fs::path(path).parent_path();
  if (!folder.empty() && !fs::is_directory(folder, error))
    throw std::runtime_error(name + ": expected a folder " + folder.string() + ", found none");
  return {Kind::kFile, name, path};
}

void checkOutputPath(const std::string& name, bool force) {
  outputPlace(name, force);
}

void checkOutputs(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs,
                  bool force) {
  std::vector<OutputPlace> places;
  for (const std::string& output : outputs) {
    if (output.empty()) continue;
    for (const std::string& input : inputs) checkNotInput(output, input);
    const OutputPlace place = outputPlace(output, force);
    for (const OutputPlace& other : places)
      if (sameFile(place, other))
        throw std::runtime_error(output + ": expected different outputs, found the same file as " +
                                 other.name);
    places.push_back(place);
  }
}

void checkNotInput(const std::string& output, const std::string& input) {
  std::error_code error;
  if (fs::equivalent(output, input, error) && !error)
    throw std::runtime_error(output + ": expected an output, found the input of the same command");
}

bool isStandardOutput(const std::string& name) {
  return !name.empty() && (name == "-" || sameAsStandardOutput(name));
}

void checkPrefix(const std::string& option, const std::string& prefix) {
  if (isStandardOutput(prefix))
    throw std::runtime_error(option +
                             ": expected what the names of several files begin with, found " +
                             prefix + ", the standard output");
}

std::string partialPath(const std::string& path) {
  return path + kPartial;
}

void makePartialFile(const std::string& path, bool force) {
  std::error_code error;
  if (force) fs::remove(path, error);
  std::FILE* const file = std::fopen(path.c_str(), "wbx");  // x: no file, and no link, of this name
  if (file == nullptr && errno == EEXIST)
    throw std::runtime_error(
        path +
        ": expected no file of this name, found one: an earlier run left it, or another is "
        "writing it (--force replaces it)");
  if (file == nullptr)
    throw std::runtime_error(path + ": expected a file to write: " + lastSystemError());
  std::fclose(file);
}

OutputFile::OutputFile(const std::string& name, bool force) : place_(outputPlace(name, force)) {
  if (place_.kind != OutputPlace::Kind::kFile) noteBegun(place_.name);
  if (place_.isStandardOutput()) return;
  const bool isFile = place_.kind == OutputPlace::Kind::kFile;
  if (isFile) {
    makePartialFile(partialPath(place_.path), force);
    unfinished_.add(partialPath(place_.path));
  }
  stream_.open(isFile ? partialPath(place_.path) : place_.path, std::ios::binary);
  if (!stream_) throw std::runtime_error(name + ": expected a file to write: " + lastSystemError());
}

OutputFile::~OutputFile() {
  if (committed_ || place_.kind != OutputPlace::Kind::kFile) return;
  stream_.close();
  std::error_code error;
  fs::remove(partialPath(place_.path), error);
}

std::ostream& OutputFile::stream() {
  return place_.isStandardOutput() ? std::cout : stream_;
}

void OutputFile::commit() {
  stopIfInterrupted();
  if (place_.isStandardOutput()) {
    if (!std::cout.flush()) throw std::runtime_error("standard output: writing failed");
    return noteWritten(place_.name);
  }
  stream_.close();
  if (!stream_) throw std::runtime_error(place_.name + ": writing failed (is the disk full?)");
  if (place_.kind == OutputPlace::Kind::kDevice) return noteWritten(place_.name);
  unfinished_.finish();  // once it is renamed, the name may be another program's
  std::error_code error;
  fs::rename(partialPath(place_.path), place_.path, error);
  if (error) throw std::runtime_error(place_.name + ": writing failed: " + error.message());
  committed_ = true;
  noteWritten(place_.name);
}

}  // namespace algtrack
