#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <alg_factory/api/Constants.h>

namespace algorithm {

/// Indices of the blobs of one id, in storage of others.
struct IndexSpan {
  std::uint32_t* first = nullptr;
  std::size_t size = 0;

  std::uint32_t* begin() const { return first; }
  std::uint32_t* end() const { return first + size; }
  std::uint32_t operator[](std::size_t i) const { return first[i]; }
};

/// A frame's blobs by id: their indices, id by id, and within an id in the order of the frame. The
/// grouping is done once; the steps work on the indices.
class IdGroups {
 public:
  /// Makes room, so that frames of at most `blobs` blobs do not allocate.
  void reserve(std::size_t blobs) { indices_.reserve(blobs); }

  /// @param ids  at most kMaxObjects; all groups are empty then
  void setIds(std::size_t ids) {
    ids_ = ids;
    bounds_.fill(0);
  }

  std::size_t ids() const { return ids_; }

  /// Blobs whose id has no group are left out.
  template <typename Blob>
  void group(const std::vector<Blob>& blobs) {
    indices_.resize(blobs.size());
    bounds_.fill(0);
    // Counts stand two places behind their id, so that after summing up, the place behind it holds
    // where the id's group begins, and after filling the groups, where it ends.
    for (const Blob& blob : blobs) {
      const auto id = static_cast<std::uint32_t>(blob.id);
      if (id < ids_) ++bounds_[id + 2];
    }
    for (std::size_t i = 2; i < bounds_.size(); ++i) bounds_[i] += bounds_[i - 1];
    for (std::size_t i = 0; i < blobs.size(); ++i) {
      const auto id = static_cast<std::uint32_t>(blobs[i].id);
      if (id < ids_) indices_[bounds_[id + 1]++] = static_cast<std::uint32_t>(i);
    }
  }

  IndexSpan operator[](std::size_t id) {
    return {indices_.data() + bounds_[id], bounds_[id + 1] - bounds_[id]};
  }

 private:
  std::size_t ids_ = 0;
  std::vector<std::uint32_t> indices_;
  std::array<std::uint32_t, kMaxObjects + 2> bounds_{};  ///< of id i: bounds_[i], bounds_[i + 1]
};

}  // namespace algorithm
