#include <alg_kit/recording/RecordingFile.h>

#include <alg_kit/recording/Recording.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

#if defined(__unix__) || defined(__APPLE__)
#define ALG_RECORDING_LOCKS 1
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace recording {
namespace {

namespace fs = std::filesystem;

constexpr const char* kCompanions[] = {"-wal", "-shm", "-journal"};

void removeCompanions(const std::string& path) {
  std::error_code error;
  for (const char* const suffix : kCompanions) fs::remove(path + suffix, error);
}

void removeAll(const std::string& path) {
  std::error_code error;
  fs::remove(path, error);
  removeCompanions(path);
}

[[noreturn]] void refuse(const std::string& path, const std::string& found) {
  throw RecordingError(path, "expected to create a recording, found: " + found);
}

[[noreturn]] void refuseExisting(const std::string& path) {
  throw RecordingError(path, "expected no file of this name, found one");
}

#if defined(ALG_RECORDING_LOCKS)

[[noreturn]] void refuseWriter(const std::string& path) {
  throw RecordingError(path, "expected a file that nobody writes, found one with its recorder");
}

/// The locks that this process holds. Only to open and close a file here would drop the locks that
/// SQLite holds on it in this process, so these files are known without a look at them.
class HeldLocks {
 public:
  struct Held {
    int descriptor;
    dev_t device;
    ino_t inode;
  };

  static HeldLocks& instance() {
    // Never destroyed: a recorder may outlive every static object.
    static auto* const locks = new HeldLocks;
    return *locks;
  }

  void add(int descriptor) {
    struct stat facts {};
    fstat(descriptor, &facts);
    const std::lock_guard<std::mutex> guard(mutex_);
    held_.push_back({descriptor, facts.st_dev, facts.st_ino});
  }

  void release(int descriptor) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto found = std::find_if(held_.begin(), held_.end(), [&](const Held& held) {
      return held.descriptor == descriptor;
    });
    if (found == held_.end()) return;  // in a forked child
    held_.erase(found);
    close(descriptor);
  }

  bool contain(const struct stat& facts) {
    const std::lock_guard<std::mutex> guard(mutex_);
    return std::any_of(held_.begin(), held_.end(), [&](const Held& held) {
      return held.device == facts.st_dev && held.inode == facts.st_ino;
    });
  }

 private:
  HeldLocks() {
    pthread_atfork([] { instance().mutex_.lock(); }, [] { instance().mutex_.unlock(); },
                   [] {
                     // The child shares the lock as long as it has the descriptor open.
                     for (const Held& held : instance().held_) close(held.descriptor);
                     instance().held_.clear();
                     instance().mutex_.unlock();
                   });
  }

  std::mutex mutex_;
  std::vector<Held> held_;
};

/// Closes what is not kept.
class Descriptor {
 public:
  explicit Descriptor(int value) : value_(value) {}
  ~Descriptor() {
    if (value_ >= 0) close(value_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return value_; }
  int keep() { return std::exchange(value_, -1); }

 private:
  int value_;
};

bool sameFile(int descriptor, const std::string& path) {
  struct stat open {
  }, named{};
  return fstat(descriptor, &open) == 0 && stat(path.c_str(), &named) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

/// False if another recorder holds it. File systems without locks count as free.
bool lockNow(int descriptor) {
  return flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

/// The lock of the file that is about to be replaced; none if there is no file.
Descriptor lockExisting(const std::string& path) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    struct stat facts {};
    if (lstat(path.c_str(), &facts) != 0) return Descriptor(-1);
    if (S_ISLNK(facts.st_mode)) return Descriptor(-1);  // the link is replaced, not its target
    if (!S_ISREG(facts.st_mode)) refuse(path, "something that is not a file");
    if (HeldLocks::instance().contain(facts)) refuseWriter(path);
    Descriptor existing(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (existing.get() < 0 && errno == ENOENT) continue;
    // A file that may be replaced but not read has no recorder of ours.
    if (existing.get() < 0) return Descriptor(-1);
    if (!lockNow(existing.get())) refuseWriter(path);
    // Another recorder may have replaced it meanwhile: then the lock is that of a file without
    // name.
    if (sameFile(existing.get(), path)) return Descriptor(existing.keep());
  }
  refuse(path, "a file that changes all the time");
}

/// Gives the file its name unless the name is taken.
bool renameToNew(const std::string& from, const std::string& to) {
#if defined(RENAME_NOREPLACE)
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno == EEXIST) return false;
#endif
  if (link(from.c_str(), to.c_str()) == 0) {
    unlink(from.c_str());
    return true;
  }
  if (errno == EEXIST) return false;
  // A file system that knows neither: nearly as good.
  struct stat facts {};
  return lstat(to.c_str(), &facts) != 0 && rename(from.c_str(), to.c_str()) == 0;
}

std::string makeUnfinished(const std::string& path) {
  std::string name = path + ".creating.XXXXXX";
  const Descriptor made(mkostemp(name.data(), O_CLOEXEC));
  if (made.get() < 0) refuse(path, std::strerror(errno));
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(made.get(), 0666 & ~mask);
  return name;
}

#else

std::string makeUnfinished(const std::string& path) {
  return path + ".creating";
}

#endif

}  // namespace

RecordingFile::RecordingFile(const std::string& path, bool overwrite,
                             const std::function<void(const std::string&)>& fill)
    : path_(path) {
  if (path.empty())
    throw RecordingError("a recording", "expected the name of its file, found none");
  std::error_code error;
  if (fs::is_directory(path, error))
    throw RecordingError(path, "expected a file to record to, found a directory");
  if (!overwrite && fs::symlink_status(path, error).type() != fs::file_type::not_found)
    refuseExisting(path);

  const std::string unfinished = makeUnfinished(path);
  try {
    fill(unfinished);
#if defined(ALG_RECORDING_LOCKS)
    Descriptor lock(open(unfinished.c_str(), O_RDONLY | O_CLOEXEC));
    if (lock.get() < 0 || !lockNow(lock.get())) refuse(path, std::strerror(errno));
    if (overwrite) {
      const Descriptor existing = lockExisting(path);
      removeCompanions(path);  // what an earlier recorder left would be taken for ours
      if (rename(unfinished.c_str(), path.c_str()) != 0) refuse(path, std::strerror(errno));
    } else {
      removeCompanions(path);
      if (!renameToNew(unfinished, path)) refuseExisting(path);
    }
    HeldLocks::instance().add(lock.get());
    lock_ = lock.keep();
#else
    removeAll(path);
    fs::rename(unfinished, path);
#endif
  } catch (const RecordingError& problem) {
    removeAll(unfinished);
    const std::string what = problem.what();
    if (what.rfind(unfinished, 0) != 0) throw;
    refuse(path, what.substr(unfinished.size() + 2));
  } catch (...) {
    removeAll(unfinished);
    throw;
  }
}

RecordingFile::~RecordingFile() {
#if defined(ALG_RECORDING_LOCKS)
  HeldLocks::instance().release(lock_);
#endif
}

RecordingFile::Whereabouts RecordingFile::whereabouts() const {
#if defined(ALG_RECORDING_LOCKS)
  if (sameFile(lock_, path_)) return Whereabouts::kHere;
  struct stat facts {};
  return fstat(lock_, &facts) == 0 && facts.st_nlink > 0 ? Whereabouts::kMoved
                                                         : Whereabouts::kRemoved;
#else
  return Whereabouts::kHere;
#endif
}

unsigned long long freeBytes(const std::string& path) {
  std::error_code error;
  const fs::path folder = fs::absolute(path, error).parent_path();
  const fs::space_info space = fs::space(folder, error);
  return error ? std::numeric_limits<unsigned long long>::max() : space.available;
}

}  // namespace recording
