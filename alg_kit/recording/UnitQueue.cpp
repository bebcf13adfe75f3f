#include <alg_kit/recording/UnitQueue.h>

namespace recording {

[[gnu::hot]] std::size_t memoryOf(const session::Unit& unit) {
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

}  // namespace recording
