#pragma once

#include <alg_kit/session/Session.h>

#include <atomic>
#include <cstddef>
#include <vector>

namespace recording {

/// The memory that a unit holds, reserved storage included.
std::size_t memoryOf(const session::Unit& unit);

/// A queue between two threads, bounded in units and in bytes: one puts in, one takes out. No lock.
class UnitQueue {
 public:
  UnitQueue(std::size_t capacity, std::size_t maxBytes) : units_(capacity), maxBytes_(maxBytes) {}

  /// Moves it in; false where there is no room.
  bool put(session::Unit& unit);

  /// Moves one out; false where there is none.
  bool take(session::Unit& unit);

  std::size_t size() const;
  std::size_t capacity() const { return units_.size(); }
  bool halfFull() const;

  /// The number of units that were ever put in.
  std::size_t position() const { return head_.load(std::memory_order_acquire); }

 private:
  std::vector<session::Unit> units_;
  std::size_t maxBytes_;
  std::atomic<std::size_t> bytes_{0};
  std::atomic<std::size_t> head_{0};  ///< next to put
  std::atomic<std::size_t> tail_{0};  ///< next to take
};

}  // namespace recording
