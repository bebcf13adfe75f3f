#pragma once

#include <alg_kit/recording/Recording.h>
#include <alg_kit/trace/PipelineTrace.h>
#include <tools/algtrack/terminal/Table.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace algtrack {

/// Counts what is in a recording: calls, streams, messages, packets and blobs.
class RecordingSurvey {
 public:
  /// @param packet  what the trace says of the entry's packet; null if none was decoded
  void add(const session::Entry& entry, const trace::PacketTrace* packet);

  std::int64_t calls() const { return calls_; }
  std::int64_t packets() const { return packets_; }  ///< stream types 0 and 2
  std::int64_t packetsDecoded() const { return decoded_; }
  double seconds() const { return static_cast<double>(lastNs_ - firstNs_) * 1e-9; }

  Table callTable() const;
  /// A gap is an interval longer than one and a half times the stream's median one.
  Table streamTable() const;
  Table logTable() const;
  /// The bytes of all decoded packets by meaning; they add up to the packets' lengths.
  Table byteTable() const;
  Table blobTable() const;

 private:
  struct Calls {
    std::int64_t count = 0, refused = 0, threw = 0;
  };
  struct Stream {
    std::int64_t count = 0, bytes = 0, refused = 0;
    std::vector<std::int64_t> startsNs;
  };
  struct Message {
    std::int64_t count = 0, firstCall = 0;
    std::optional<std::int64_t> firstPacket;
  };
  struct Pieces {
    std::int64_t count = 0, bytes = 0;
  };
  struct Blobs {
    std::int64_t count = 0;
    double diameters = 0;
  };

  std::int64_t calls_ = 0, packets_ = 0, decoded_ = 0;
  std::int64_t firstNs_ = 0, lastNs_ = 0;
  std::map<session::CallKind, Calls> byKind_;
  std::map<int, Stream> streams_;
  std::map<std::pair<int, std::string>, Message> messages_;
  std::array<Pieces, trace::kPieceKinds> pieces_{};
  std::map<int, std::array<Blobs, 2>> blobs_;  ///< by id, then camera
};

/// What a stream type carries: "device packets".
std::string streamName(int streamType);

}  // namespace algtrack
