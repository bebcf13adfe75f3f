// What may be an object's marker in one frame.
#pragma once

#include <alg_kit/estimate/PacketBlobs.h>
#include <alg_kit/estimate/PixelEquations.h>

#include <array>
#include <cstddef>

namespace estimate {

struct Candidate {
  Eigen::Vector2d pixel = Eigen::Vector2d::Zero();
  double weight = 0;
  /// The blobs that it is made of, one bit each: two candidates cannot both be true if they share.
  std::uint32_t blobs = 0;
};

/// One camera's candidates of one id: every blob, and every two that overlap as one (the hardware
/// may report a marker in two halves; their common centre is that of all their light).
class CandidateList {
 public:
  void clear() { count_ = blobs_ = 0; }
  void add(const Blob& blob);
  void addMerged();  ///< after the last blob

  std::size_t size() const { return count_; }
  std::size_t blobCount() const { return blobs_; }
  const Candidate& operator[](std::size_t i) const { return list_[i]; }

  /// The nearest to `pixel` of those that share no blob with `taken`; null if there is none.
  const Candidate* nearest(const Eigen::Vector2d& pixel, std::uint32_t taken = 0) const;

 private:
  static constexpr std::size_t kMostOfOneId = 8;  ///< blobs; more are left out
  static constexpr std::size_t kMost = kMostOfOneId * (kMostOfOneId + 1) / 2;
  std::array<Candidate, kMost> list_;
  std::size_t count_ = 0;
  std::size_t blobs_ = 0;
};

/// Both cameras' candidates of one object.
using ObjectCandidates = std::array<CandidateList, 2>;

}  // namespace estimate
