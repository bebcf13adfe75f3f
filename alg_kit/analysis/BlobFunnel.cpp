#include <alg_kit/analysis/BlobFunnel.h>

namespace analysis {

void BlobFunnel::add(const trace::PacketTrace& packet) {
  for (const trace::PacketPiece& piece : packet.pieces)
    if (piece.kind == trace::PacketPiece::Kind::kRecord && (!id_ || piece.step.blob.id == *id_))
      ++records_[static_cast<std::size_t>(piece.step.camera)];
  for (const trace::TracedBlob& blob : packet.blobs)
    if (!id_ || blob.raw.id == *id_)
      ++ends_[static_cast<std::size_t>(blob.fate)][static_cast<std::size_t>(blob.camera)];
}

bool BlobFunnel::closes() const {
  for (std::size_t camera = 0; camera < 2; ++camera) {
    std::int64_t sum = 0;
    for (const auto& end : ends_) sum += end[camera];
    if (sum != records_[camera]) return false;
  }
  return true;
}

}  // namespace analysis
