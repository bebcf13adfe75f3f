#pragma once

#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/session/Session.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace session {

/// What a replay changes in the recorded calls.
struct WhatIf {
  std::optional<int> productType;  ///< of every Init
  std::optional<algorithm::StereoCalibration> calibration;
  std::optional<int> filterMode;  ///< of every SetFilterMode; without any, set after every Init

  bool any() const { return productType || calibration || filterMode; }
};

/// Makes recorded calls again, through the public interface of a library that was not used before,
/// and keeps what it answers. A call that was made from inside a callback is made from inside the
/// same callback again, and a sink that threw throws again.
class Player : private algorithm::DataSink, private algorithm::LogSink {
 public:
  /// @param alg  not owned; it, or the library behind it, keeps the player's sinks
  /// @param whatIf  what to change in the calls
  /// @param addFilterMode  set `whatIf.filterMode` after every Init, since no call would do it
  explicit Player(algorithm::AlgBase* alg, WhatIf whatIf = {}, bool addFilterMode = false);
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  /// From now on calls go to `alg`, for example to a recorder around the first one.
  void playThrough(algorithm::AlgBase* alg) { alg_ = alg; }

  /// Whether the calls get a `durationNs`, which costs two looks at the clock a call. At first yes.
  void measureDurations(bool measure) { measures_ = measure; }

  /// Plays a unit. The result holds the same calls, with the arguments that were used and what came
  /// of them, until the next call.
  const Unit& play(const Unit& unit);

  /// Call::startNs of the recorded call that is being played.
  std::int64_t recordedNs() const { return recordedNs_; }

  /// How many nested calls the latest unit's callbacks looked at: at most two looks for each, and
  /// one for each callback.
  std::int64_t looks() const { return looks_; }

 private:
  struct Running {
    std::size_t place = 0;
    int steps = 0;
    std::size_t next = 0;  ///< in `nested_`: the first one that no callback has come to
  };

  /// A call that was made in the callback `step` of another.
  struct Nested {
    std::size_t parent = 0;
    int step = 0;
    std::size_t place = 0;
  };

  void playCall(std::size_t place);
  std::optional<int> perform(Call& call);
  void sortNested();
  void playNested();
  bool threwAt(std::size_t place, int step) const;

  bool Deliver(const void* buffer, int offset, int length) override;
  bool Log(int level, const char* message) override;

  algorithm::AlgBase* alg_;
  WhatIf whatIf_;
  bool addFilterMode_;
  const Unit* recorded_ = nullptr;
  Unit played_;
  std::vector<bool> done_;
  std::vector<Nested> nested_;            ///< by parent, step and place
  std::vector<std::size_t> firstNested_;  ///< by the parent's place, in `nested_`
  std::vector<Running> running_;          ///< outermost first
  std::int64_t recordedNs_ = 0;
  std::int64_t looks_ = 0;
  bool measures_ = true;
};

}  // namespace session
