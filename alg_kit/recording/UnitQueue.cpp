#include <alg_kit/recording/UnitQueue.h>

#include <utility>

namespace recording {

std::size_t memoryOf(const session::Unit& unit) {
  std::size_t bytes = unit.truth.capacity() * sizeof(session::TruthRow) +
                      unit.entries.capacity() * sizeof(session::Entry);
  for (const session::Entry& entry : unit.entries) {
    bytes += entry.call.payload.capacity() + entry.call.output.capacity() +
             entry.logs.capacity() * sizeof(session::LogLine) +
             entry.blocks.capacity() * sizeof(session::DeliveredBlock);
    for (const session::LogLine& log : entry.logs) bytes += log.text.capacity();
  }
  return bytes;
}

bool UnitQueue::put(session::Unit& unit) {
  const std::size_t head = head_.load(std::memory_order_relaxed);
  if (head - tail_.load(std::memory_order_acquire) == units_.size()) return false;
  const std::size_t bytes = memoryOf(unit);
  if (bytes_.load(std::memory_order_relaxed) + bytes > maxBytes_) return false;
  bytes_.fetch_add(bytes, std::memory_order_relaxed);
  units_[head % units_.size()] = std::move(unit);
  head_.store(head + 1, std::memory_order_release);
  return true;
}

bool UnitQueue::take(session::Unit& unit) {
  const std::size_t tail = tail_.load(std::memory_order_relaxed);
  if (tail == head_.load(std::memory_order_acquire)) return false;
  unit = std::move(units_[tail % units_.size()]);
  bytes_.fetch_sub(memoryOf(unit), std::memory_order_relaxed);
  tail_.store(tail + 1, std::memory_order_release);
  return true;
}

std::size_t UnitQueue::size() const {
  const std::size_t tail = tail_.load(std::memory_order_acquire);
  return head_.load(std::memory_order_acquire) - tail;
}

bool UnitQueue::halfFull() const {
  return size() >= capacity() / 2 || bytes_.load(std::memory_order_relaxed) >= maxBytes_ / 2;
}

}  // namespace recording
