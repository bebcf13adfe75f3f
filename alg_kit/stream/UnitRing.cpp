#include <alg_kit/stream/UnitRing.h>

#include <new>
#include <utility>

namespace stream {
namespace {

std::size_t bytesOf(const session::Unit& unit) {
  std::size_t bytes = unit.truth.size() * sizeof(session::TruthRow);
  for (const session::Entry& entry : unit) {
    bytes += sizeof entry + entry.call.payload.size() + entry.call.output.size() +
             entry.blocks.size() * sizeof(session::DeliveredBlock);
    for (const session::LogLine& line : entry.logs) bytes += sizeof line + line.text.size();
  }
  return bytes;
}

std::int64_t callsOf(const session::Unit& unit) {
  return static_cast<std::int64_t>(unit.size());
}

}  // namespace

void UnitRing::put(const session::Unit& unit, const Context& before) noexcept {
  const std::uint64_t number = head_.load(std::memory_order_relaxed);
  Slot& slot = slots_[number % slots_.size()];
  int state = slot.state.load(std::memory_order_relaxed);
  if (bytesOf(unit) > kLargestUnit || state == kInUse ||
      !slot.state.compare_exchange_strong(state, kInUse, std::memory_order_acquire)) {
    drop(callsOf(unit));
    return;
  }
  if (state == kFull) drop(callsOf(slot.unit));
  try {
    session::copy(unit, slot.unit);
  } catch (const std::bad_alloc&) {
    drop(callsOf(unit));
    slot.state.store(kEmpty, std::memory_order_release);
    return;
  }
  slot.before = before;
  slot.number = number;
  slot.state.store(kFull, std::memory_order_release);
  head_.store(number + 1, std::memory_order_release);
}

bool UnitRing::take(session::Unit& unit, Context& before) noexcept {
  for (;;) {
    const std::uint64_t head = head_.load(std::memory_order_acquire);
    if (tail_ == head) return false;
    if (head - tail_ > slots_.size()) tail_ = head - slots_.size();
    Slot& slot = slots_[tail_ % slots_.size()];
    int state = kFull;
    const bool mine = slot.state.compare_exchange_strong(state, kInUse, std::memory_order_acquire);
    const bool wanted = mine && slot.number == tail_;
    if (wanted) {
      std::swap(unit, slot.unit);
      before = slot.before;
    }
    if (mine) slot.state.store(wanted ? kEmpty : kFull, std::memory_order_release);
    ++tail_;  // what was not there has been replaced meanwhile
    if (wanted) return true;
  }
}

}  // namespace stream
