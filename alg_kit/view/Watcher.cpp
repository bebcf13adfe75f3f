#include <alg_kit/view/Watcher.h>

#include <alg_kit/analysis/RecordedHealth.h>
#include <alg_kit/analysis/TruthTrack.h>
#include <alg_kit/recording/FollowingReader.h>
#include <alg_kit/recording/FrameRate.h>
#include <alg_kit/recording/UnitCursor.h>
#include <alg_kit/view/FrameMaker.h>

#include <chrono>
#include <cstring>
#include <exception>
#include <filesystem>
#include <future>
#include <memory>
#include <system_error>
#include <utility>

namespace view {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using recording::FollowingReader;

constexpr auto kLook = std::chrono::milliseconds(8);          // at whether the file changed
constexpr auto kLookAnyway = std::chrono::milliseconds(250);  // whatever it says of itself
constexpr auto kLookAgain = std::chrono::milliseconds(40);  // after a change: it may be half of one
constexpr auto kPatience = std::chrono::seconds(3);         // with a file that cannot be read now
constexpr auto kJudgeEvery = std::chrono::seconds(20);      // the calibration
constexpr std::int64_t kReportEvery = 500;                  // units
constexpr std::size_t kPacketsForRate = 500;                // that say how fast they come
constexpr double kUsualRate = 90;  // Hz, of a recording that may have no packet yet

std::int64_t nowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
      .count();
}

/// Changes with the file and its journal. Nothing is opened for it.
std::pair<std::uintmax_t, std::uint64_t> lookOf(const std::string& path) {
  std::pair<std::uintmax_t, std::uint64_t> look{0, 0};
  for (const std::string& name : {path, path + "-wal"}) {
    std::error_code error;
    const auto size = fs::file_size(name, error);
    if (error) continue;
    look.first = look.first * 31 + size;
    const auto written = fs::last_write_time(name, error).time_since_epoch().count();
    look.second = look.second * 31 + static_cast<std::uint64_t>(written);
  }
  return look;
}

}  // namespace

/// What the thread does, with everything that only it uses.
class Watcher::Work {
 public:
  explicit Work(Watcher& watcher) : watcher_(watcher) {}

  void run() {
    if (recording::isThere(watcher_.path_)) {
      const recording::RecordingReader reader(watcher_.path_);
      const recording::Metadata& metadata = reader.metadata();
      if (metadata.complete && metadata.values.count("continued_in") == 0) return readAll(reader);
    }
    follow();
  }

 private:
  void readAll(const recording::RecordingReader& reader) {
    begin(reader.metadata(), State::kReading);
    maker_.emplace(watcher_.log_, watcher_.bodies_,
                   recording::frameRateOf(reader, kPacketsForRate));
    const bool hasTruth = reader.hasTruth();
    if (hasTruth) noteTruth();
    const std::int64_t total = reader.callCount();
    recording::UnitCursor units(reader.entries());
    session::Unit unit;
    std::optional<analysis::TruthTrack> truth;
    std::int64_t done = 0;
    for (std::int64_t n = 0; !watcher_.stop_ && units.next(unit); ++n) {
      if (!truth)
        truth.emplace(hasTruth ? std::optional(reader.truthRows()) : std::nullopt,
                      unit[0].call.startNs);
      take(unit, [&](std::int64_t call, double seconds) -> std::optional<FrameMaker::Truth> {
        truth->goTo(call, seconds);
        FrameMaker::Truth places;
        bool any = false;
        for (std::size_t i = 0; i < places.size(); ++i)
          if (const auto* const place = truth->at(i)) {
            places[i] = *place;
            any = true;
          }
        return any ? std::optional(places) : std::nullopt;
      });
      done += static_cast<std::int64_t>(unit.size());
      if (n % kReportEvery == 0)
        progress(total > 0 ? static_cast<double>(done) / static_cast<double>(total) : 1);
    }
    maker_->publish();
    if (watcher_.stop_) return;
    begin(reader.metadata(), State::kEnded);
    judge();
    finishJudging(true);
  }

  void follow() {
    FollowingReader follower(watcher_.path_);
    maker_.emplace(watcher_.log_, watcher_.bodies_, kUsualRate);
    auto seen = lookOf("");
    auto now = Clock::now(), changed = now, looked = now, failedFirst = now, judged = now;
    bool fails = false;
    while (!watcher_.stop_ && follower.state() != FollowingReader::State::kEnded) {
      const auto look = lookOf(follower.path());
      now = Clock::now();
      if (look != seen) changed = now;
      seen = look;
      if (now - changed > kLookAgain && now - looked < kLookAnyway) {
        std::this_thread::sleep_for(kLook);
        continue;
      }
      looked = now;
      try {
        readOn(follower);
        fails = false;
      } catch (const recording::RecordingError&) {
        // Its writer may be in the middle of something. This thread may have stood still for long
        // before: one failure alone says nothing.
        if (!fails) failedFirst = now;
        fails = true;
        if (now - failedFirst > kPatience) throw;
      }
      if (now - judged > kJudgeEvery) {
        judge();
        judged = now;
      }
      finishJudging(false);
      std::this_thread::sleep_for(kLook);
    }
    if (watcher_.stop_) return;
    finishJudging(true);
    judge();
    finishJudging(true);
  }

  /// Begins to look at what the blobs say of the calibration, on a thread of its own: a live
  /// picture does not wait for it. Not while the look before goes on.
  void judge() {
    const auto status = watcher_.status();
    if (judging_.valid() || !status.calibration) return;
    judging_ = std::async(
        std::launch::async,
        [calibration = *status.calibration, pairs = maker_->pairs()]() -> analysis::HealthFacts {
          if (const auto usable = analysis::usableOf(calibration))
            return analysis::healthFactsOf(*usable, pairs);
          return {"unknown", "this calibration cannot be worked with", {}};
        });
  }

  void finishJudging(bool wait) {
    if (!judging_.valid()) return;
    if (!wait && judging_.wait_for(std::chrono::seconds(0)) != std::future_status::ready) return;
    analysis::HealthFacts health;
    try {
      health = judging_.get();
    } catch (const std::exception& problem) {
      health = {"unknown", problem.what(), {}};  // the frames stand
    }
    const std::lock_guard<std::mutex> guard(watcher_.mutex_);
    watcher_.status_.health = std::move(health);
  }

  /// What was committed since the last time.
  void readOn(FollowingReader& follower) {
    session::Unit unit;
    std::unique_ptr<recording::RecordingReader> truths;
    const std::int64_t before = watcher_.log_.changes();
    while (!watcher_.stop_ && follower.next(unit)) {
      if (watcher_.status().state == State::kAbsent) begin(follower.metadata(), State::kReading);
      take(unit, [&](std::int64_t call, double) { return truthOf(follower.path(), truths, call); });
    }
    maker_->publish();
    if (follower.state() == FollowingReader::State::kUnderWay)
      begin(follower.metadata(), State::kLive);
    if (follower.state() == FollowingReader::State::kEnded)
      begin(follower.metadata(), State::kEnded);
    if (watcher_.log_.changes() != before) watcher_.tell();
  }

  /// Of a recording under way. A simulated one has its truth from the first packets on; where those
  /// have none nobody asks again.
  std::optional<FrameMaker::Truth> truthOf(const std::string& path,
                                           std::unique_ptr<recording::RecordingReader>& reader,
                                           std::int64_t call) {
    constexpr int kPatience = 200;
    if (packetsWithoutTruth_ > kPatience) return std::nullopt;
    if (!reader) reader = std::make_unique<recording::RecordingReader>(path);
    const auto rows = reader->truthOf(call);
    packetsWithoutTruth_ = rows.empty() ? packetsWithoutTruth_ + 1 : 0;
    if (rows.empty()) return std::nullopt;
    noteTruth();
    return analysis::truePlacesOf(rows);
  }

  void noteTruth() {
    const std::lock_guard<std::mutex> guard(watcher_.mutex_);
    watcher_.status_.hasTruth = true;
  }

  void take(const session::Unit& unit, const FrameMaker::TruthOf& truthOf) {
    for (const session::Entry& entry : unit)
      if (entry.call.kind == session::CallKind::kInit) noteInit(entry.call);
    maker_->add(unit, truthOf);
    const std::lock_guard<std::mutex> guard(watcher_.mutex_);
    watcher_.newsNs_ = nowNs();
  }

  void noteInit(const session::Call& call) {
    const std::lock_guard<std::mutex> guard(watcher_.mutex_);
    watcher_.status_.productType = call.type;
    watcher_.status_.calibration.reset();
    if (call.payload.size() == sizeof(algorithm::StereoCalibration))
      std::memcpy(&watcher_.status_.calibration.emplace(), call.payload.data(),
                  call.payload.size());
  }

  void progress(double share) {
    const std::lock_guard<std::mutex> guard(watcher_.mutex_);
    watcher_.status_.share = share;
  }

  void begin(const recording::Metadata& metadata, State state) {
    const std::lock_guard<std::mutex> guard(watcher_.mutex_);
    watcher_.status_.metadata = metadata;
    if (watcher_.status_.state == state) return;
    watcher_.status_.state = state;
    if (state != State::kReading) watcher_.status_.share = 1;
    if (state == State::kEnded) watcher_.status_.health.reset();  // all of it is judged now
  }

  Watcher& watcher_;
  std::optional<FrameMaker> maker_;
  int packetsWithoutTruth_ = 0;
  std::future<analysis::HealthFacts> judging_;
};

Watcher::Watcher(std::string path, std::vector<bodies::Body> bodies)
    : path_(std::move(path)), bodies_(std::move(bodies)), newsNs_(nowNs()) {
  status_.path = path_;
  thread_ = std::thread([this] { run(); });
}

Watcher::~Watcher() {
  stop_ = true;
  thread_.join();
}

void Watcher::run() noexcept {
  std::string problem;
  try {
    return Work(*this).run();
  } catch (const std::exception& error) {
    problem = error.what();
  } catch (...) {
    problem = path_ + ": reading failed";
  }
  const std::lock_guard<std::mutex> guard(mutex_);
  status_.state = State::kFailed;
  status_.problem = std::move(problem);
}

void Watcher::setListener(std::function<void()> listener) {
  const std::lock_guard<std::mutex> guard(listenerMutex_);
  listener_ = std::move(listener);
}

void Watcher::tell() {
  const std::lock_guard<std::mutex> guard(listenerMutex_);
  if (listener_) listener_();
}

Watcher::Status Watcher::status() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  Status status = status_;
  status.secondsSinceNews = static_cast<double>(nowNs() - newsNs_) / 1e9;
  return status;
}

const char* keyOf(Watcher::State state) {
  constexpr const char* kKeys[] = {"absent", "reading", "live", "ended", "failed"};
  return kKeys[static_cast<int>(state)];
}

}  // namespace view
