#pragma once

#include <alg_kit/session/Prefetch.h>
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
  UnitQueue(std::size_t capacity, std::size_t maxBytes) : slots_(capacity), maxBytes_(maxBytes) {}

  /// Moves it in; false where there is no room.
  /// @param unit   is left without storage
  /// @param bytes  its `memoryOf`
  bool put(session::Unit& unit, std::size_t bytes);

  /// Moves one out; false where there is none.
  /// @param unit  has no storage
  bool take(session::Unit& unit);

  /// Ask for what the next `put` or `take` looks at.
  void prefetchPut() const { session::prefetch(&slotOf(head_), sizeof(Slot)); }
  void prefetchTake() const { session::prefetch(&slotOf(tail_), sizeof(Slot)); }

  std::size_t size() const;
  std::size_t capacity() const { return slots_.size(); }
  bool halfFull() const;

  /// The number of units that were ever put in.
  std::size_t position() const { return head_.load(std::memory_order_acquire); }

 private:
  struct Slot {
    session::Unit unit;
    std::size_t bytes = 0;  ///< its memory, which is far off: a host's call looks for it once
  };

  const Slot& slotOf(const std::atomic<std::size_t>& place) const {
    return slots_[place.load(std::memory_order_relaxed) % slots_.size()];
  }

  std::vector<Slot> slots_;
  std::size_t maxBytes_;
  std::atomic<std::size_t> bytes_{0};
  std::atomic<std::size_t> head_{0};  ///< next to put
  std::atomic<std::size_t> tail_{0};  ///< next to take
};

inline bool UnitQueue::put(session::Unit& unit, std::size_t bytes) {
  const std::size_t head = head_.load(std::memory_order_relaxed);
  if (head - tail_.load(std::memory_order_acquire) == slots_.size()) return false;
  if (bytes_.load(std::memory_order_relaxed) + bytes > maxBytes_) return false;
  bytes_.fetch_add(bytes, std::memory_order_relaxed);
  Slot& slot = slots_[head % slots_.size()];
  slot.unit.swap(unit);
  slot.bytes = bytes;
  head_.store(head + 1, std::memory_order_release);
  return true;
}

inline bool UnitQueue::take(session::Unit& unit) {
  const std::size_t tail = tail_.load(std::memory_order_relaxed);
  if (tail == head_.load(std::memory_order_acquire)) return false;
  Slot& slot = slots_[tail % slots_.size()];
  slot.unit.swap(unit);
  bytes_.fetch_sub(slot.bytes, std::memory_order_relaxed);
  tail_.store(tail + 1, std::memory_order_release);
  return true;
}

inline std::size_t UnitQueue::size() const {
  const std::size_t tail = tail_.load(std::memory_order_acquire);
  return head_.load(std::memory_order_acquire) - tail;
}

inline bool UnitQueue::halfFull() const {
  return size() >= capacity() / 2 || bytes_.load(std::memory_order_relaxed) >= maxBytes_ / 2;
}

}  // namespace recording
