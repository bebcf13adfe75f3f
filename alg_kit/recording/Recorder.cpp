#include <alg_kit/recording/Recorder.h>

#include <alg_factory/service/PoseAnswer.h>
#include <alg_kit/recording/RecordingFile.h>
#include <alg_kit/recording/RecordingWriter.h>
#include <alg_kit/recording/SetUpCalls.h>
#include <alg_kit/recording/UnitQueue.h>
#include <alg_kit/session/Prefetch.h>
#include <alg_kit/session/ProcessGeneration.h>
#include <alg_kit/session/QuietThread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <filesystem>
#include <mutex>
#include <thread>
#include <utility>

namespace recording {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kLeastCommitInterval = std::chrono::milliseconds(1);

/// Units that wait for a host's first calls, half a second of them, with room for a packet and what
/// the library answers: memory that grows in a call is most of what makes some take long.
constexpr int kReadyUnits = 512;
constexpr std::size_t kUsualPayload = 520;  // a full packet, stamped

session::Unit readyUnit() {
  session::Unit unit;
  session::Entry& entry = unit.append();
  entry.call.payload.resize(kUsualPayload);
  entry.call.output.resize(sizeof(algorithm::PoseAnswer));
  entry.blocks.resize(1);
  unit.clear();
  return unit;
}

/// A recorder keeps no call that a reader would refuse to read.
constexpr std::size_t kLargestUnit = 16 * 1024 * 1024;

std::string fileName(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

/// walk.algrec, walk.2.algrec, walk.3.algrec, ...
std::string partName(const std::string& first, int part) {
  std::filesystem::path path(first);
  const std::string extension = path.extension().string();
  path.replace_extension();
  return path.string() + "." + std::to_string(part) + extension;
}

}  // namespace

/// A file, its lock and its database, from the first call in it to the last.
struct Part {
  Part(const std::string& path, const RecorderOptions& options)
      : file(path, options.overwrite,
             [&](const std::string& unfinished) { createTables(unfinished, options.facts); }),
        writer(path) {}

  RecordingFile file;
  RecordingWriter writer;  ///< closed before the lock is released
  Clock::time_point begun = Clock::now();
  std::int64_t written = 0;
  std::int64_t droppedBefore = 0;  ///< calls dropped before this part began
  bool lost = false;               ///< the file has its name no more
  bool beginsWithSetUp = false;    ///< and has not yet got it
};

struct Recorder::State {
  State(const std::string& path, const RecorderOptions& given)
      : options(given),
        firstPath(path),
        waiting(std::max<std::size_t>(options.queueCapacity, 2), options.queueBytes),
        spent(waiting.capacity(), options.queueBytes / 4),
        current(std::make_unique<Part>(path, options)),
        currentPath(path) {
    for (int i = 0; i < kReadyUnits; ++i) {
      session::Unit unit = readyUnit();
      if (!spent.put(unit, memoryOf(unit))) break;
    }
  }

  bool inChild() const { return session::processGeneration() != bornIn; }
  std::int64_t dropped() const { return droppedByQueue + droppedByDisk; }

  void setError(const char* text) noexcept {
    const std::lock_guard<std::mutex> guard(mutex);
    std::strncpy(error.data(), text, error.size() - 1);
  }

  /// Runs it; false, with the reason in `error`, where it throws. Allocates nothing itself.
  template <typename Action>
  bool attempt(Action action) noexcept {
    try {
      action();
      return true;
    } catch (const std::bad_alloc&) {
      setError("out of memory while writing");
    } catch (const std::exception& problem) {
      setError(problem.what());
    } catch (...) {
      setError("writing failed");
    }
    return false;
  }

  void run() noexcept;
  void drain() noexcept;
  void drainUpTo(std::size_t position) noexcept;
  void writeUnit(const session::Unit& unit);
  void lookAfterFile() noexcept;
  bool mayWrite() noexcept;
  void startNextIfDue() noexcept;
  void goOnIn(std::unique_ptr<Part> next) noexcept;
  void finishCurrent() noexcept;

  const RecorderOptions options;
  const std::string firstPath;

  // What a host's calls look at lies together.
  const int bornIn = session::processGeneration();
  std::atomic<bool> stop{false};
  UnitQueue waiting;
  /// Written units go back, and some are there from the start: a host's calls reuse little memory,
  /// which stays warm.
  UnitQueue spent;
  std::atomic<std::int64_t> written{0};
  std::atomic<std::int64_t> droppedByQueue{0};
  std::atomic<std::int64_t> droppedByDisk{0};

  // Of the writer's thread.
  std::unique_ptr<Part> current;
  SetUpCalls setUp;
  std::size_t taken = 0;  ///< units
  Clock::time_point retryNextPart{};

  mutable std::mutex mutex;
  std::condition_variable wake, done;
  bool finished = false;
  std::array<char, 400> error{};
  std::string currentPath;
  int files = 1;
  std::unique_ptr<Part> handedOver;  ///< to go on in, from unit `handOverAt` on
  std::size_t handOverAt = 0;

  std::thread thread;
  std::shared_ptr<State> keptInChild;  ///< this state itself: nothing of it is ever destroyed there
};

Recorder::Recorder(const std::string& path, const RecorderOptions& options)
    : state_(std::make_shared<State>(path, options)) {
  state_->thread = session::quietThread([state = state_] { state->run(); });
}

Recorder::~Recorder() {
  if (state_->inChild()) {
    // The thread, its locks and its connection are the parent's: nothing here may touch them.
    state_->keptInChild = state_;
    return;
  }
  close(state_->options.closeLimit);
  if (state_->thread.joinable()) state_->thread.detach();
}

void Recorder::take(const session::Unit& unit) noexcept {
  try {
    session::copy(unit, copy_);
    append(copy_);
  } catch (const std::bad_alloc&) {
    miss(static_cast<std::int64_t>(unit.used));
  }
}

void Recorder::miss(std::int64_t calls) noexcept {
  state_->droppedByQueue += calls;
}

void Recorder::end() noexcept {
  State& state = *state_;
  if (state.inChild()) return;
  const std::lock_guard<std::mutex> guard(state.mutex);
  state.stop = true;
  state.wake.notify_one();
}

[[gnu::hot]] void Recorder::append(session::Unit& unit) noexcept {
  State& state = *state_;
  state.waiting.prefetchPut();
  state.spent.prefetchTake();
  const std::size_t bytes = memoryOf(unit);
  const bool tooLarge = unit.used > kMostCallsPerUnit || bytes > kLargestUnit;
  while (tooLarge || state.stop || state.inChild() || !state.waiting.put(unit, bytes)) {
    if (tooLarge || !state.options.waitWhenFull || state.stop || state.inChild()) {
      miss(static_cast<std::int64_t>(unit.used));
      return;
    }
    state.wake.notify_one();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  state.spent.take(unit);
  // For a query that follows at once.
  session::prefetch(unit.entries.data(), sizeof(session::Entry));
  // The writer looks by itself several times a second; only a queue that fills up wakes it.
  if (state.waiting.halfFull()) state.wake.notify_one();
}

[[gnu::hot]] void Recorder::takeOver(session::Unit& unit) noexcept {
  append(unit);
}

void Recorder::continueIn(const std::string& path) {
  State& state = *state_;
  if (state.inChild())
    throw RecordingError(path, "expected the process that records, found a fork");
  auto part = std::make_unique<Part>(path, state.options);
  const std::lock_guard<std::mutex> guard(state.mutex);
  if (state.stop || state.handedOver)
    throw RecordingError(path, state.stop ? "expected a recorder that records, found a closed one"
                                          : "expected one next file at a time, found a second");
  state.handedOver = std::move(part);
  state.handOverAt = state.waiting.position();
}

void Recorder::State::run() noexcept {
  bool stopping = false;
  while (!stopping) {
    {
      std::unique_lock<std::mutex> lock(mutex);
      if (!stop) wake.wait_for(lock, std::max(options.commitInterval, kLeastCommitInterval));
      stopping = stop;
    }
    drain();
  }
  finishCurrent();
  const std::lock_guard<std::mutex> guard(mutex);
  finished = true;
  done.notify_all();
}

void Recorder::State::drain() noexcept {
  std::unique_ptr<Part> next;
  std::size_t position = 0;
  {
    const std::lock_guard<std::mutex> guard(mutex);
    next = std::move(handedOver);
    position = handOverAt;
  }
  if (next) {
    drainUpTo(position);
    goOnIn(std::move(next));
  }
  drainUpTo(waiting.position());
  if (!stop) startNextIfDue();
}

void Recorder::State::drainUpTo(std::size_t position) noexcept {
  lookAfterFile();
  const std::int64_t lost = dropped();
  const bool begun =
      (taken < position || lost > 0) && mayWrite() && attempt([&] { current->writer.begin(); });
  bool good = begun;
  std::int64_t calls = 0;
  session::Unit unit;
  for (; taken < position && waiting.take(unit); ++taken) {
    calls += static_cast<std::int64_t>(unit.used);
    good = good && attempt([&] { writeUnit(unit); });
    unit.used = 0;
    unit.truth.clear();
    if (!spent.put(unit, memoryOf(unit))) unit = session::Unit();
  }
  good = good && attempt([&] { current->writer.commit(lost - current->droppedBefore); });
  if (good) {
    written += calls;
    current->written += calls;
    return;
  }
  if (begun) current->writer.rollback();
  droppedByDisk += calls;
}

void Recorder::State::writeUnit(const session::Unit& unit) {
  if (current->beginsWithSetUp && unit.used > 0) {
    const session::Call& first = unit.entries[0].call;
    for (const session::Entry& entry : setUp.before(first.index, first.startNs))
      current->writer.write(entry);
    current->writer.setFact("continues_at", std::to_string(first.index));
  }
  current->writer.write(unit);
  if (unit.used > 0) current->beginsWithSetUp = false;
  setUp.remember(unit);
}

/// Whoever removes, replaces or renames a file under way must not find a recorder that goes on as
/// if nothing were.
void Recorder::State::lookAfterFile() noexcept {
  if (current->lost) return;
  const auto whereabouts = current->file.whereabouts();
  if (whereabouts == RecordingFile::Whereabouts::kHere) return;
  current->lost = true;
  attempt([&] {
    const bool moved = whereabouts == RecordingFile::Whereabouts::kMoved;
    throw RecordingError(current->file.path(),
                         moved ? "the file was renamed or replaced while it was recorded: it ends "
                                 "here, and what follows is dropped"
                               : "the file was removed while it was recorded: its calls are lost");
  });
  current->writer.abandon();
  if (whereabouts == RecordingFile::Whereabouts::kMoved) return;
  written -= current->written;
  droppedByDisk += current->written;
  current->written = 0;
}

bool Recorder::State::mayWrite() noexcept {
  if (current->lost) return false;
  if (options.minFreeBytes <= 0) return true;
  return attempt([&] {
    if (freeBytes(current->file.path()) < static_cast<unsigned long long>(options.minFreeBytes))
      throw RecordingError(current->file.path(),
                           "expected " + std::to_string(options.minFreeBytes) +
                               " free bytes on the disk, found fewer: calls are dropped");
  });
}

void Recorder::State::startNextIfDue() noexcept {
  if (current->written == 0 && !current->lost) return;
  const std::chrono::duration<double> age = Clock::now() - current->begun;
  const bool due = (options.maxSeconds > 0 && age.count() >= options.maxSeconds) ||
                   (options.maxBytes > 0 && current->writer.bytes() >= options.maxBytes);
  if (!due || Clock::now() < retryNextPart) return;
  retryNextPart = Clock::now() + std::chrono::seconds(1);
  std::unique_ptr<Part> next;
  // A name that is taken is left alone: the recording must go on somewhere.
  for (int part = files + 1; !next && part <= files + 1000; ++part) {
    const std::string path = partName(firstPath, part);
    std::error_code ignored;
    if (!options.overwrite && std::filesystem::exists(path, ignored)) continue;
    if (!attempt([&] { next = std::make_unique<Part>(path, options); })) return;
  }
  if (next) goOnIn(std::move(next));
}

void Recorder::State::goOnIn(std::unique_ptr<Part> next) noexcept {
  attempt([&] {
    next->writer.setFact("continues", fileName(current->file.path()));
    current->writer.setFact("continued_in", fileName(next->file.path()));
  });
  finishCurrent();
  next->beginsWithSetUp = true;
  next->droppedBefore = dropped();
  next->begun = Clock::now();
  current = std::move(next);
  retryNextPart = {};
  attempt([&] {
    const std::lock_guard<std::mutex> guard(mutex);
    ++files;
    currentPath = current->file.path();
  });
}

void Recorder::State::finishCurrent() noexcept {
  if (!current) return;
  lookAfterFile();
  if (!current->lost) attempt([&] { current->writer.finish(dropped() - current->droppedBefore); });
  current.reset();
}

RecorderStatus Recorder::close(std::chrono::milliseconds limit) {
  State& state = *state_;
  if (state.inChild()) return status();
  bool finished = false;
  end();
  {
    std::unique_lock<std::mutex> lock(state.mutex);
    finished = state.done.wait_for(lock, limit, [&] { return state.finished; });
  }
  if (finished && state.thread.joinable()) state.thread.join();
  return status();
}

RecorderStatus Recorder::status() const {
  const State& state = *state_;
  RecorderStatus status;
  status.dropped = state.dropped();
  if (state.inChild()) {
    status.error = "a forked child records nothing";
    return status;
  }
  status.written = state.written;
  const std::lock_guard<std::mutex> guard(state.mutex);
  status.error = state.error.data();
  status.file = state.currentPath;
  status.files = state.files;
  status.closed = state.finished;
  if (!state.finished && state.stop) {
    if (status.error.empty()) status.error = state.currentPath + ": the disk does not answer yet";
  }
  return status;
}

}  // namespace recording
