#include <alg_kit/recording/FollowingReader.h>

#include <alg_kit/recording/Rows.h>
#include <alg_kit/recording/UnitCursor.h>
#include <alg_kit/recording/UnitQueue.h>
#include <alg_kit/text/TextFile.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#if defined(__unix__) || defined(__APPLE__)
#include <sys/stat.h>
#endif

namespace recording {
namespace {

namespace fs = std::filesystem;

// A file is read in short visits, so that its journal can be worked in between two of them however
// slowly the units are used.
constexpr std::size_t kMostUnitsAhead = 256;
constexpr std::size_t kMostBytesAhead = 1024 * 1024;

/// Tells a file from another one that took its name. The file is not opened for it: to close it
/// again would drop the locks that SQLite may hold on it in this process.
std::string identityOf(const std::string& path) {
#if defined(__unix__) || defined(__APPLE__)
  struct stat facts {};
  if (stat(path.c_str(), &facts) == 0)
    return std::to_string(facts.st_dev) + "/" + std::to_string(facts.st_ino);
#endif
  return "unknown";
}

}  // namespace

bool isThere(const std::string& path) {
  std::error_code problem;
  const bool there = fs::exists(fs::status(path, problem));
  if (there) return true;
  std::string found;
  if (!fs::path(path).has_filename())
    found = "no name of a file";
  else if (problem && problem != std::errc::no_such_file_or_directory)
    found = problem.message();
  if (found.empty()) return false;
  throw RecordingError(path, "expected the name of a recording or of one to come, found: " + found);
}

FollowingReader::FollowingReader(std::string path, std::int64_t firstCall)
    : path_(std::move(path)), firstUnread_(firstCall), nextCall_(firstCall) {}

bool FollowingReader::next(session::Unit& unit) {
  if (given_ == aheadUsed_) fill();
  if (given_ == aheadUsed_) {
    if (ended_) state_ = State::kEnded;
    return false;
  }
  std::swap(unit, ahead_[given_++]);
  nextCall_ = unit[unit.size() - 1].call.index + 1;
  return true;
}

void FollowingReader::fill() {
  given_ = aheadUsed_ = 0;
  // A part without a call of its own is passed by.
  while (!ended_ && aheadUsed_ == 0 && hasFile()) {
    const bool allRead = read();
    if (!allRead || !metadata_.complete) return;
    ended_ = !goOnInNextFile();
  }
}

bool FollowingReader::hasFile() {
  const bool there = isThere(path_);
  if (!there && identity_.empty()) return false;
  const std::string identity = there ? identityOf(path_) : "";
  if (!identity_.empty() && identity != identity_)
    throw RecordingError(path_, std::string("expected the recording that was followed so far, "
                                            "found ") +
                                    (there ? "another file of this name" : "no such file"));
  identity_ = identity;
  return true;
}

/// Reads ahead. Returns whether nothing is left to read for now.
bool FollowingReader::read() {
  const RecordingReader reader(path_);
  metadata_ = reader.metadata();
  state_ = State::kUnderWay;
  // The set-up calls with which a next file begins were given already.
  const auto begin = metadata_.values.find("continues_at");
  if (!parts_.empty() && begin != metadata_.values.end())
    firstUnread_ = std::max(firstUnread_, countIn(path_, begin->first, begin->second));
  UnitCursor cursor(reader.entries(firstUnread_));
  for (std::size_t bytes = 0; aheadUsed_ < kMostUnitsAhead && bytes < kMostBytesAhead;) {
    if (aheadUsed_ == ahead_.size()) ahead_.emplace_back();
    session::Unit& unit = ahead_[aheadUsed_];
    if (!cursor.next(unit)) return true;
    ++aheadUsed_;
    firstUnread_ = unit[unit.size() - 1].call.index + 1;
    bytes += memoryOf(unit);
  }
  return false;
}

bool FollowingReader::goOnInNextFile() {
  const auto name = metadata_.values.find("continued_in");
  if (name == metadata_.values.end()) return false;
  const fs::path next = fs::path(path_).parent_path() / name->second;
  // The name is the file's own text, which may be anything.
  if (name->second != next.filename().string() ||
      !parts_.insert(fs::path(path_).filename().string()).second || parts_.count(name->second) != 0)
    throw RecordingError(path_,
                         "expected the name of a next file, found " + text::quoted(name->second));
  std::error_code error;
  if (!fs::exists(next, error)) return false;  // it was moved away, or is in another folder
  path_ = next.string();
  identity_.clear();
  return true;
}

}  // namespace recording
