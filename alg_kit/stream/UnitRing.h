#pragma once

#include <alg_kit/session/Session.h>
#include <alg_kit/stream/Scene.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace stream {

/// The last units between two threads, for a listener that wants the newest: where there is no room
/// the oldest goes. No lock, and nobody waits: of two that meet at one slot the one that came
/// second goes without it.
class UnitRing {
 public:
  static constexpr std::size_t kLargestUnit = 256 * 1024;  ///< bytes; larger ones are dropped

  /// @param capacity  units; their memory is at most kLargestUnit each
  explicit UnitRing(std::size_t capacity) : slots_(capacity < 2 ? 2 : capacity) {}

  /// Copies it in; the oldest makes room. One thread.
  void put(const session::Unit& unit, const Context& before) noexcept;

  /// Swaps the oldest out; false where there is none. One thread.
  bool take(session::Unit& unit, Context& before) noexcept;

  /// Calls of units that were put and will not be taken.
  std::int64_t dropped() const { return dropped_.load(std::memory_order_relaxed); }
  void drop(std::int64_t calls) { dropped_.fetch_add(calls, std::memory_order_relaxed); }

 private:
  enum State : int { kEmpty, kFull, kInUse };

  struct Slot {
    std::atomic<int> state{kEmpty};
    std::uint64_t number = 0;  ///< of all that were put
    session::Unit unit;
    Context before;
  };

  std::vector<Slot> slots_;
  std::atomic<std::uint64_t> head_{0};  ///< number of the next to put
  std::uint64_t tail_ = 0;              ///< number of the next to take
  std::atomic<std::int64_t> dropped_{0};
};

}  // namespace stream
