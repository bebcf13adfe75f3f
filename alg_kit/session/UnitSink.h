#pragma once

#include <alg_kit/session/Session.h>

#include <cstdint>

namespace session {

/// Takes what a TapAlg hands on. Everything here runs on the host's threads, one at a time: it must
/// neither wait, nor throw, nor call the tap. What cannot keep up drops units, and says so.
class UnitSink {
 public:
  virtual ~UnitSink() = default;

  /// A finished unit. Units come in the order of their calls.
  /// @param unit  the tap's own; valid during the call
  virtual void take(const Unit& unit) noexcept = 0;

  /// As `take`, where the unit is for nobody after this sink: it may keep the unit's storage, and
  /// leave other in its place.
  virtual void takeOver(Unit& unit) noexcept { take(unit); }

  /// `calls` calls happened of which no unit could be made: memory ran out.
  virtual void miss(std::int64_t /*calls*/) noexcept {}

  /// Nothing follows: the sink was removed, or the tap has ended.
  virtual void end() noexcept {}
};

}  // namespace session
