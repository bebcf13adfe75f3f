#pragma once

#include <cstdint>
#include <vector>

#include <alg_factory/hid/BaseCV.h>
#include <alg_factory/hid/PacketDecoder.h>
#include <alg_factory/hid/RawBlob.h>

namespace algorithm {
class LogSink;
}

namespace hid {

/// First stage: one device packet in, the raw blobs of both cameras out.
class HidProtocol : public algorithm::BaseCV {
 public:
  /// Product type 2 has six blob ids, every other value three. Always true.
  bool init(std::uint32_t productType);

  /// Binds the packet and the two per-camera outputs (none owned) and returns `prepare`.
  bool configure(std::vector<std::uint8_t>* input, std::vector<RawBlob>* leftOut,
                 std::vector<RawBlob>* rightOut);

  /// `logger` (not owned) must be set before any packet that yields a report: it is not checked.
  bool setLogger(algorithm::LogSink* logger);

  /// Takes the bound packet by exchanging storage, leaves the input empty, and appends its records
  /// to the outputs, which the next stages take. A packet longer than 512 bytes is cut. With no
  /// input bound, the packet last taken is decoded again.
  /// @return false, without a report, when the packet is empty; true otherwise, also when a report
  ///         (level 3) was logged.
  bool process() override;

  /// Makes room for the longest packet, so that no packet allocates.
  bool prepare() override;

  int blobIdCount() const { return blobIdCount_; }
  const Frame& frame() const { return frame_; }

 private:
  std::int32_t blobIdCount_ = 0;
  std::vector<std::uint8_t>* input_ = nullptr;
  std::vector<RawBlob>* leftOut_ = nullptr;
  std::vector<RawBlob>* rightOut_ = nullptr;
  std::vector<std::uint8_t> packet_;
  Frame frame_{};
  std::uint16_t frameLength_ = 0;
  algorithm::LogSink* logger_ = nullptr;
};

}  // namespace hid
