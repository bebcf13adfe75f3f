#pragma once

#include <alg_kit/analysis/Moment.h>
#include <alg_kit/session/Session.h>
#include <alg_kit/trace/PipelineTrace.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace analysis {

/// The calls of one operation.
struct OperationCount {
  session::CallKind kind = session::CallKind::kInit;
  std::int64_t calls = 0;
  std::int64_t refused = 0;  ///< returned false
  std::int64_t threw = 0;
};

/// The InputStream calls of one stream type. The intervals are those between the calls' starts.
struct StreamCount {
  int type = 0;
  std::int64_t calls = 0, refused = 0, bytes = 0;
  double rateHz;               ///< mean; NaN with fewer than two calls, as the two below
  double medianMs;             ///< of the intervals
  double longestMs;            ///< of the intervals
  std::int64_t gaps = 0;       ///< intervals longer than `kGapIntervals` median ones
  std::int64_t gapEndsAt = 0;  ///< the call of this stream, from 0, that ended the longest interval
};

constexpr double kGapIntervals = 1.5;

/// A text that the library logged.
struct MessageCount {
  int level = 0;
  std::string text;  ///< without the newline at its end
  std::int64_t count = 0;
  std::int64_t firstCall = 0;
  std::optional<std::int64_t> firstPacket;  ///< none = not during a packet
  double firstSeconds = 0;                  ///< since the recording's first call
};

/// The bytes of all decoded packets that had one meaning.
struct PieceCount {
  trace::PacketPiece::Kind kind = trace::PacketPiece::Kind::kLeading;
  std::int64_t pieces = 0, bytes = 0;
};

/// The blobs of one id, by camera (0 left, 1 right).
struct BlobCount {
  int id = 0;
  std::array<std::int64_t, 2> blobs{};
  std::array<double, 2> meanDiameter{};  ///< pixels; NaN without blobs
};

/// A library has a dozen texts. A file that has more is not one that it made: the first so many are
/// kept, and so much of each.
constexpr std::size_t kMostMessages = 1000;
constexpr std::size_t kLongestMessage = 4000;  ///< bytes

/// Counts what is in a recording: calls, streams, messages, packets and blobs.
class RecordingSurvey {
 public:
  /// @param packet   what the trace says of the entry's packet; null if none was decoded
  /// @param seconds  of the call's start, since the recording's first call's
  /// @param moment   the entry's packet, if it is one
  void add(const session::Entry& entry, const trace::PacketTrace* packet, double seconds,
           const std::optional<Moment>& moment);

  std::int64_t calls() const { return calls_; }
  std::int64_t packets() const { return packets_; }  ///< stream types 0 and 2
  std::int64_t packetsDecoded() const { return decoded_; }
  double seconds() const { return static_cast<double>(lastNs_ - firstNs_) * 1e-9; }

  std::vector<OperationCount> operations() const;  ///< those that were called
  std::vector<StreamCount> streams() const;        ///< those that were used, by type
  std::vector<MessageCount> messages() const;      ///< by level and text
  std::int64_t messagesLeftOut() const { return messagesLeftOut_; }  ///< beyond kMostMessages
  std::vector<PieceCount> pieces() const;  ///< every kind; bytes add up to the packets'
  std::vector<BlobCount> blobs() const;    ///< those that were seen, by id

 private:
  struct Stream {
    std::int64_t count = 0, bytes = 0, refused = 0;
    std::vector<std::int64_t> startsNs;
  };
  struct Message {
    std::int64_t count = 0, firstCall = 0;
    std::optional<std::int64_t> firstPacket;
    double firstSeconds = 0;
  };
  struct Blobs {
    std::int64_t count = 0;
    double diameters = 0;
  };

  std::int64_t calls_ = 0, packets_ = 0, decoded_ = 0;
  std::int64_t firstNs_ = 0, lastNs_ = 0;
  std::map<session::CallKind, OperationCount> byKind_;
  std::map<int, Stream> streams_;
  std::map<std::pair<int, std::string>, Message> messages_;
  std::int64_t messagesLeftOut_ = 0;
  std::array<PieceCount, trace::kPieceKinds> pieces_{};
  std::map<int, std::array<Blobs, 2>> blobs_;  ///< by id, then camera
};

/// What a stream type carries: "device packets".
std::string streamName(int streamType);

}  // namespace analysis
