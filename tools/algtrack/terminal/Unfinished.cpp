#include <tools/algtrack/terminal/Unfinished.h>

#include <atomic>

#include <unistd.h>

namespace algtrack {

/// Never freed: a signal's handler may be reading it.
struct UnfinishedPath {
  std::string path;
  std::atomic<bool> unfinished{true};
  UnfinishedPath* before = nullptr;
};

namespace {

std::atomic<UnfinishedPath*> latest{nullptr};

}  // namespace

void Unfinished::add(const std::string& path) {
  auto* const added = new UnfinishedPath;
  added->path = path;
  paths_.push_back(added);
  added->before = latest.load();
  while (!latest.compare_exchange_weak(added->before, added)) {
  }
}

void Unfinished::finish() noexcept {
  for (UnfinishedPath* const path : paths_) path->unfinished = false;
}

void removeUnfinished() noexcept {
  // The latest first: a folder is empty by then.
  for (const UnfinishedPath* path = latest; path != nullptr; path = path->before)
    if (path->unfinished && unlink(path->path.c_str()) != 0) rmdir(path->path.c_str());
}

}  // namespace algtrack
