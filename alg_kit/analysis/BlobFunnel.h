#pragma once

#include <alg_kit/trace/PipelineTrace.h>

#include <array>
#include <cstdint>
#include <optional>

namespace analysis {

/// Where the blobs of many packets ended. What goes in is counted from the packets' bytes, where it
/// ends from the blobs' fates: two ways that must give one sum.
class BlobFunnel {
 public:
  /// @param id  count this blob id alone
  explicit BlobFunnel(std::optional<int> id = std::nullopt) : id_(id) {}

  void add(const trace::PacketTrace& packet);

  std::int64_t records(int camera) const { return records_[static_cast<std::size_t>(camera)]; }
  std::int64_t ended(trace::BlobFate fate, int camera) const {
    return ends_[static_cast<std::size_t>(fate)][static_cast<std::size_t>(camera)];
  }
  std::int64_t ended(trace::BlobFate fate) const { return ended(fate, 0) + ended(fate, 1); }

  /// Every blob that went in ended in exactly one place, for each camera.
  bool closes() const;

 private:
  std::optional<int> id_;
  std::array<std::int64_t, 2> records_{};
  std::array<std::array<std::int64_t, 2>, trace::kBlobFates> ends_{};
};

}  // namespace analysis
