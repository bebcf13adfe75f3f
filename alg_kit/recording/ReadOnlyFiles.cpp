#include <alg_kit/recording/ReadOnlyFiles.h>

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <new>
#include <vector>

namespace recording {

/// The file system as SQLite sees it, and what belongs to the one database that is opened on it.
struct ReadOnlyFiles::System {
  sqlite3_vfs vfs{};
  sqlite3_vfs* real = nullptr;
  std::string name;
  std::string refusal;
  bool journalGone = false;  ///< played back and, as far as SQLite can see, removed
};

namespace {

using System = ReadOnlyFiles::System;

/// The last eight bytes of a journal that names a super-journal, which SQLite would remove.
constexpr std::array<unsigned char, 8> kJournalMagic = {0xd9, 0xd5, 0x05, 0xf9,
                                                        0x20, 0xa1, 0x63, 0xd7};
constexpr std::size_t kMostOverlay = 256 * 1024 * 1024;

constexpr sqlite3_int64 kJournalHeader = 32;  // bytes, of a write-ahead journal

/// An open file: the real one, opened to read, and what was "written" to it since, in memory.
struct File {
  sqlite3_file base;  // first: SQLite's view
  System* system;
  const char* path;    ///< SQLite's, until it closes the file
  sqlite3_file* real;  ///< null: a file that is not there reads as empty
  int kind;            ///< SQLITE_OPEN_MAIN_DB and the like
  std::map<sqlite3_int64, std::vector<unsigned char>>* overlay;
  sqlite3_int64 size;  ///< -1 = the real one's
  std::size_t overlaid;
};

File* of(sqlite3_file* file) {
  return reinterpret_cast<File*>(file);
}

System& of(sqlite3_vfs* vfs) {
  return *static_cast<System*>(vfs->pAppData);
}

int closeFile(sqlite3_file* file) {
  File& f = *of(file);
  if (f.real != nullptr) {
    if (f.real->pMethods != nullptr) f.real->pMethods->xClose(f.real);
    sqlite3_free(f.real);
  }
  delete f.overlay;
  return SQLITE_OK;
}

/// A file that is there now, to read; otherwise it stays empty.
int openReal(File& f) {
  sqlite3_vfs& real = *f.system->real;
  f.real = static_cast<sqlite3_file*>(sqlite3_malloc(real.szOsFile));
  if (f.real == nullptr) return SQLITE_NOMEM;
  std::memset(f.real, 0, static_cast<std::size_t>(real.szOsFile));
  int ignored = 0;
  return real.xOpen(&real, f.path, f.real, f.kind | SQLITE_OPEN_READONLY, &ignored);
}

/// A recorder that begins gives its file the name first and makes the journal a moment later.
void lookForJournal(File& f) {
  if (f.real != nullptr || f.kind != SQLITE_OPEN_WAL) return;
  int there = 0;
  f.system->real->xAccess(f.system->real, f.path, SQLITE_ACCESS_EXISTS, &there);
  if (there == 0 || openReal(f) == SQLITE_OK) return;
  sqlite3_free(f.real);
  f.real = nullptr;
}

int fileSize(sqlite3_file* file, sqlite3_int64* size) {
  File& f = *of(file);
  lookForJournal(f);
  if (f.size >= 0) {
    *size = f.size;
    return SQLITE_OK;
  }
  *size = 0;
  if (f.real == nullptr) return SQLITE_OK;
  const int result = f.real->pMethods->xFileSize(f.real, size);
  // A recorder that is killed before its first frame leaves a journal of a header alone. It holds
  // nothing, but SQLite, without an index to write, reads it again and again and gives up.
  if (f.kind == SQLITE_OPEN_WAL && *size <= kJournalHeader) *size = 0;
  return result;
}

int readFile(sqlite3_file* file, void* to, int count, sqlite3_int64 from) {
  File& f = *of(file);
  lookForJournal(f);
  if (f.real != nullptr && f.size < 0 && f.overlay->empty())
    return f.real->pMethods->xRead(f.real, to, count, from);
  sqlite3_int64 size = 0;
  int result = fileSize(file, &size);
  if (result != SQLITE_OK) return result;
  const bool whole = from + count <= size;
  std::memset(to, 0, static_cast<std::size_t>(count));
  if (f.real != nullptr && !(f.size == 0)) {
    result = f.real->pMethods->xRead(f.real, to, count, from);
    if (result != SQLITE_OK && result != SQLITE_IOERR_SHORT_READ) return result;
  }
  for (auto piece = f.overlay->upper_bound(from - 65536 - 1);
       piece != f.overlay->end() && piece->first < from + count; ++piece) {
    const auto begin = std::max(from, piece->first);
    const auto end =
        std::min(from + count, piece->first + static_cast<sqlite3_int64>(piece->second.size()));
    if (begin < end)
      std::memcpy(static_cast<unsigned char*>(to) + (begin - from),
                  piece->second.data() + (begin - piece->first),
                  static_cast<std::size_t>(end - begin));
  }
  if (whole) return SQLITE_OK;
  const auto inside = std::max<sqlite3_int64>(size - from, 0);
  std::memset(static_cast<unsigned char*>(to) + inside, 0,
              static_cast<std::size_t>(count - inside));
  return SQLITE_IOERR_SHORT_READ;
}

int writeFile(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 to) {
  File& f = *of(file);
  f.overlaid += static_cast<std::size_t>(count);
  if (f.overlaid > kMostOverlay || count > 65536) return SQLITE_FULL;
  try {
    const auto* const first = static_cast<const unsigned char*>(bytes);
    (*f.overlay)[to].assign(first, first + count);
  } catch (const std::bad_alloc&) {
    return SQLITE_NOMEM;
  }
  sqlite3_int64 size = 0;
  fileSize(file, &size);
  if (to + count > size) f.size = to + count;
  return SQLITE_OK;
}

int truncateFile(sqlite3_file* file, sqlite3_int64 size) {
  of(file)->size = size;
  return SQLITE_OK;
}

int syncFile(sqlite3_file*, int) {
  return SQLITE_OK;
}

/// Nobody else is locked out of a file that is only read.
int lockFile(sqlite3_file* file, int level) {
  File& f = *of(file);
  if (f.real == nullptr) return SQLITE_OK;
  return f.real->pMethods->xLock(f.real, std::min(level, SQLITE_LOCK_SHARED));
}

int unlockFile(sqlite3_file* file, int level) {
  File& f = *of(file);
  if (f.real == nullptr) return SQLITE_OK;
  return f.real->pMethods->xUnlock(f.real, std::min(level, SQLITE_LOCK_SHARED));
}

int checkReservedLock(sqlite3_file* file, int* held) {
  File& f = *of(file);
  *held = 0;
  return f.real == nullptr ? SQLITE_OK : f.real->pMethods->xCheckReservedLock(f.real, held);
}

int fileControl(sqlite3_file*, int, void*) {
  return SQLITE_NOTFOUND;
}

int sectorSize(sqlite3_file* file) {
  const File& f = *of(file);
  return f.real == nullptr ? 4096 : f.real->pMethods->xSectorSize(f.real);
}

int deviceCharacteristics(sqlite3_file*) {
  return 0;
}

/// With a writer that lives, its index of the journal, which is never written: also not where the
/// writer is of this process and SQLite would. Without one SQLite makes an index of its own in
/// memory, and looks at each reading whether there is a writer now.
int shmMap(sqlite3_file* file, int region, int size, int, void volatile** to) {
  File& f = *of(file);
  *to = nullptr;
  const int result = f.real->pMethods->xShmMap(f.real, region, size, 0, to);
  if ((result & 0xFF) == SQLITE_CANTOPEN) return SQLITE_READONLY_CANTINIT;
  return result == SQLITE_OK ? SQLITE_READONLY : result;
}

int shmLock(sqlite3_file* file, int offset, int count, int flags) {
  File& f = *of(file);
  // SQLite asks for a share of the writer's lock only where an index has no words yet, to learn
  // whether anybody is about to write them. Somebody is: without a writer there is no index.
  constexpr int kWriterLock = 0, kShared = SQLITE_SHM_LOCK | SQLITE_SHM_SHARED;
  if (offset == kWriterLock && flags == kShared) return SQLITE_BUSY;
  // A lock on an index that nobody has needs nobody's leave.
  const int result = f.real->pMethods->xShmLock(f.real, offset, count, flags);
  return result == SQLITE_IOERR_SHMLOCK ? SQLITE_OK : result;
}

void shmBarrier(sqlite3_file* file) {
  of(file)->real->pMethods->xShmBarrier(of(file)->real);
}

int shmUnmap(sqlite3_file* file, int) {
  return of(file)->real->pMethods->xShmUnmap(of(file)->real, 0);
}

const sqlite3_io_methods kMethods = {2,
                                     closeFile,
                                     readFile,
                                     writeFile,
                                     truncateFile,
                                     syncFile,
                                     fileSize,
                                     lockFile,
                                     unlockFile,
                                     checkReservedLock,
                                     fileControl,
                                     sectorSize,
                                     deviceCharacteristics,
                                     shmMap,
                                     shmLock,
                                     shmBarrier,
                                     shmUnmap,
                                     nullptr,
                                     nullptr};

bool namesSuperJournal(sqlite3_file& journal) {
  sqlite3_int64 size = 0;
  std::array<unsigned char, 8> tail{};
  return journal.pMethods->xFileSize(&journal, &size) == SQLITE_OK && size >= 16 &&
         journal.pMethods->xRead(&journal, tail.data(), 8, size - 8) == SQLITE_OK &&
         tail == kJournalMagic;
}

int openFile(sqlite3_vfs* vfs, const char* path, sqlite3_file* file, int flags, int* outFlags) {
  System& system = of(vfs);
  constexpr int kKinds = SQLITE_OPEN_MAIN_DB | SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_WAL;
  file->pMethods = nullptr;
  if (path == nullptr || (flags & kKinds) == 0) return SQLITE_CANTOPEN;
  File& f = *of(file);
  f.system = &system;
  f.path = path;
  f.real = nullptr;
  f.kind = flags & kKinds;
  f.size = -1;
  f.overlaid = 0;
  f.overlay = new (std::nothrow) std::map<sqlite3_int64, std::vector<unsigned char>>;
  if (f.overlay == nullptr) return SQLITE_NOMEM;

  const bool database = f.kind == SQLITE_OPEN_MAIN_DB;
  int there = 1;
  if (!database) system.real->xAccess(system.real, path, SQLITE_ACCESS_EXISTS, &there);
  if (f.kind == SQLITE_OPEN_MAIN_JOURNAL && system.journalGone) there = 0;
  if (there != 0) {
    int result = openReal(f);
    if (result == SQLITE_OK && f.kind == SQLITE_OPEN_MAIN_JOURNAL && namesSuperJournal(*f.real)) {
      system.refusal = "expected a journal of this recording, found one that names another file";
      result = SQLITE_CANTOPEN;
    }
    if (result != SQLITE_OK) {
      closeFile(file);
      return result;
    }
  }
  if (outFlags != nullptr) *outFlags = flags;
  file->pMethods = &kMethods;
  return SQLITE_OK;
}

int removeFile(sqlite3_vfs* vfs, const char* path, int) {
  const std::string name = path == nullptr ? "" : path;
  const std::string ending = "-journal";
  if (name.size() > ending.size() &&
      name.compare(name.size() - ending.size(), ending.size(), ending) == 0)
    of(vfs).journalGone = true;
  return SQLITE_OK;
}

int accessFile(sqlite3_vfs* vfs, const char* path, int flags, int* result) {
  System& system = of(vfs);
  const std::string name = path == nullptr ? "" : path;
  const std::string ending = "-journal";
  const bool journal = name.size() > ending.size() &&
                       name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
  if (journal && system.journalGone) {
    *result = 0;
    return SQLITE_OK;
  }
  return system.real->xAccess(system.real, path, flags, result);
}

int fullPathname(sqlite3_vfs* vfs, const char* path, int size, char* to) {
  return of(vfs).real->xFullPathname(of(vfs).real, path, size, to);
}

int randomness(sqlite3_vfs* vfs, int size, char* to) {
  return of(vfs).real->xRandomness(of(vfs).real, size, to);
}

int sleepFor(sqlite3_vfs* vfs, int microseconds) {
  return of(vfs).real->xSleep(of(vfs).real, microseconds);
}

int currentTime(sqlite3_vfs* vfs, double* to) {
  return of(vfs).real->xCurrentTime(of(vfs).real, to);
}

}  // namespace

ReadOnlyFiles::ReadOnlyFiles() : system_(std::make_unique<System>()) {
  System& system = *system_;
  system.real = sqlite3_vfs_find(nullptr);
  char name[64];
  std::snprintf(name, sizeof name, "recording-%p", static_cast<void*>(&system));
  system.name = name;
  sqlite3_vfs& vfs = system.vfs;
  vfs.iVersion = 1;
  vfs.szOsFile = sizeof(File);
  vfs.mxPathname = system.real->mxPathname;
  vfs.zName = system.name.c_str();
  vfs.pAppData = &system;
  vfs.xOpen = openFile;
  vfs.xDelete = removeFile;
  vfs.xAccess = accessFile;
  vfs.xFullPathname = fullPathname;
  vfs.xRandomness = randomness;
  vfs.xSleep = sleepFor;
  vfs.xCurrentTime = currentTime;
  sqlite3_vfs_register(&vfs, 0);
}

ReadOnlyFiles::~ReadOnlyFiles() {
  sqlite3_vfs_unregister(&system_->vfs);
}

const char* ReadOnlyFiles::name() const {
  return system_->name.c_str();
}

const std::string& ReadOnlyFiles::refusal() const {
  return system_->refusal;
}

std::string readOnlyUri(const std::string& path) {
  std::string uri = "file:";
  // A relative path must not be taken for an authority, nor its characters for syntax.
  const std::string absolute = std::filesystem::absolute(path).string();
  for (const char c : absolute) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '/' || c == '.' || c == '-' || c == '_';
    char code[4];
    std::snprintf(code, sizeof code, "%%%02X",
                  static_cast<unsigned>(static_cast<unsigned char>(c)));
    if (plain)
      uri += c;
    else
      uri += code;
  }
  return uri + "?readonly_shm=1";
}

bool hasRollbackJournal(const std::string& path) {
  std::error_code error;
  const auto real = std::filesystem::canonical(path, error).string();
  if (error) return false;
  const auto size = std::filesystem::file_size(real + "-journal", error);
  return !error && size > 0;
}

}  // namespace recording
