// Moments of a recording by the names that people have for them: a time, a call, a packet.
#pragma once

#include <alg_kit/recording/Recording.h>

#include <cstdint>
#include <optional>
#include <string>

namespace analysis {

/// A device packet (InputStream of stream type 0 or 2) by all its names.
struct Moment {
  std::int64_t packet = 0;  ///< number in the recording, from 0
  std::int64_t call = 0;    ///< Call::index
  double seconds = 0;       ///< of the call's start, since the recording's first call's
};

/// "packet 450, call 1804, 5.000 s"
std::string textOf(const Moment& moment);

/// "5.000 s"
std::string secondsText(double seconds);

/// Seconds of the recording: `from` is in, `to` is not.
struct TimeRange {
  std::optional<double> from, to;

  bool given() const { return from || to; }
  bool contains(double seconds) const {
    return (!from || seconds >= *from) && (!to || seconds < *to);
  }
};

/// One of the names of a moment.
struct MomentQuery {
  std::optional<double> time;          ///< seconds: the nearest packet
  std::optional<std::int64_t> call;    ///< a packet's own call, or one that came behind it
  std::optional<std::int64_t> packet;  ///< number

  bool given() const { return time || call || packet; }
};

/// The packet that was asked for.
/// @throws recording::RecordingError if there is no such one
Moment findMoment(const recording::RecordingReader& reader, const MomentQuery& query);

/// Names the calls of a recording, given in order from the first.
class MomentCounter {
 public:
  /// Seconds since the first call that was given.
  double secondsOf(const session::Call& call);

  /// The moment, if the call is a packet.
  std::optional<Moment> next(const session::Call& call);

 private:
  std::optional<std::int64_t> firstNs_;
  std::int64_t packets_ = 0;
};

}  // namespace analysis
