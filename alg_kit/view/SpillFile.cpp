#include <alg_kit/view/SpillFile.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <cstdlib>

#include <unistd.h>

namespace view {
namespace {

constexpr std::size_t kMostWaiting = 256 * 1024;  // bytes in memory before they go to the disk

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error("temporary file: " + what + ": " +
                           std::system_category().message(errno));
}

}  // namespace

SpillFile::SpillFile() {
  std::string name = (std::filesystem::temp_directory_path() / "algtrack-view-XXXXXX").string();
  file_ = mkstemp(name.data());
  if (file_ < 0) fail(name);
  unlink(name.c_str());
}

SpillFile::~SpillFile() {
  close(file_);
}

std::uint64_t SpillFile::append(const void* bytes, std::size_t size) {
  const std::uint64_t begin = this->size();
  if (waiting_.size() + size > kMostWaiting) flush();
  waiting_.append(static_cast<const char*>(bytes), size);
  return begin;
}

void SpillFile::flush() {
  for (std::size_t done = 0; done < waiting_.size();) {
    const ssize_t more = pwrite(file_, waiting_.data() + done, waiting_.size() - done,
                                static_cast<off_t>(written_ + done));
    if (more <= 0) fail("writing failed");
    done += static_cast<std::size_t>(more);
  }
  written_ += waiting_.size();
  waiting_.clear();
}

void SpillFile::read(std::uint64_t offset, void* bytes, std::size_t size) {
  if (offset + size > this->size()) throw std::runtime_error("temporary file: read past its end");
  if (offset >= written_) {
    std::memcpy(bytes, waiting_.data() + (offset - written_), size);
    return;
  }
  if (offset + size > written_) flush();
  for (std::size_t done = 0; done < size;) {
    const ssize_t more = pread(file_, static_cast<char*>(bytes) + done, size - done,
                               static_cast<off_t>(offset + done));
    if (more <= 0) fail("reading failed");
    done += static_cast<std::size_t>(more);
  }
}

void SpillFile::overwrite(std::uint64_t offset, const void* bytes, std::size_t size) {
  if (offset + size > written_) flush();
  if (pwrite(file_, bytes, size, static_cast<off_t>(offset)) != static_cast<ssize_t>(size))
    fail("writing failed");
}

}  // namespace view
