#include <alg_kit/analysis/CheckByte.h>

#include <alg_factory/api/Constants.h>

namespace analysis {

std::optional<bool> deviceCheckByteRight(const session::Call& call,
                                         const trace::PacketTrace& packet) {
  const bool stamped = packet.streamType == algorithm::kStampedPacket;
  const int size = static_cast<int>(call.payload.size()) - (stamped ? algorithm::kStampSize : 0);
  const int end = size - 1;
  if (end < 0 || end >= hid::kFrameSize) return std::nullopt;
  return hid::checkSum(packet.frame, end) == packet.frame[static_cast<std::size_t>(end)];
}

}  // namespace analysis
