#include <tools/algtrack/BlobFunnel.h>

#include <string>

namespace algtrack {

void BlobFunnel::add(const PacketTrace& packet) {
  for (const PacketPiece& piece : packet.pieces)
    if (piece.kind == PacketPiece::Kind::kRecord)
      ++records_[static_cast<std::size_t>(piece.step.camera)];
  for (const TracedBlob& blob : packet.blobs)
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

Table BlobFunnel::table() const {
  Table table({"stage", "left", "right", "blobs"});
  std::array<std::int64_t, 2> left = records_;
  const auto addRow = [&](const std::string& text, const std::array<std::int64_t, 2>& counts) {
    table.addRow({text, counts[0], counts[1], counts[0] + counts[1]});
  };
  const auto addSum = [&](const char* text) { addRow(text, left); };
  addSum("records decoded");
  for (int i = 0; i < static_cast<int>(BlobFate::kDelivered); ++i) {
    const auto& counts = ends_[static_cast<std::size_t>(i)];
    addRow(std::string("  - ") + describe(static_cast<BlobFate>(i)), counts);
    for (std::size_t camera = 0; camera < 2; ++camera) left[camera] -= counts[camera];
    switch (static_cast<BlobFate>(i)) {
      case BlobFate::kMerged:
        addSum("= after merging");
        break;
      case BlobFate::kNotMutual:
        addSum("= with a partner");
        break;
      case BlobFate::kEpipolar:
        addSum("= of accepted pairs");
        break;
      case BlobFate::kTooNear:
        addSum("= of points");
        break;
      case BlobFate::kTooMany:
        addSum("= of points after the filter");
        break;
      default:
        break;
    }
  }
  addRow("= delivered", ends_[static_cast<std::size_t>(BlobFate::kDelivered)]);
  return table;
}

nlohmann::ordered_json BlobFunnel::json() const {
  nlohmann::ordered_json json;
  json["records"] = {{"left", records_[0]}, {"right", records_[1]}};
  for (int i = 0; i < kBlobFates; ++i) {
    const auto& counts = ends_[static_cast<std::size_t>(i)];
    json["ends"][keyOf(static_cast<BlobFate>(i))] = {{"left", counts[0]}, {"right", counts[1]}};
  }
  json["closes"] = closes();
  return json;
}

}  // namespace algtrack
