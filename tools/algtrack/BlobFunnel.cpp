#include <tools/algtrack/BlobFunnel.h>

#include <string>

namespace algtrack {

void BlobFunnel::add(const trace::PacketTrace& packet) {
  for (const trace::PacketPiece& piece : packet.pieces)
    if (piece.kind == trace::PacketPiece::Kind::kRecord)
      ++records_[static_cast<std::size_t>(piece.step.camera)];
  for (const trace::TracedBlob& blob : packet.blobs)
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
  for (int i = 0; i < static_cast<int>(trace::BlobFate::kDelivered); ++i) {
    const auto& counts = ends_[static_cast<std::size_t>(i)];
    addRow(std::string("  - ") + trace::describe(static_cast<trace::BlobFate>(i)), counts);
    for (std::size_t camera = 0; camera < 2; ++camera) left[camera] -= counts[camera];
    switch (static_cast<trace::BlobFate>(i)) {
      case trace::BlobFate::kMerged:
        addSum("= after merging");
        break;
      case trace::BlobFate::kNotMutual:
        addSum("= with a partner");
        break;
      case trace::BlobFate::kEpipolar:
        addSum("= of accepted pairs");
        break;
      case trace::BlobFate::kTooNear:
        addSum("= of points");
        break;
      case trace::BlobFate::kTooMany:
        addSum("= of points after the filter");
        break;
      default:
        break;
    }
  }
  addRow("= delivered", ends_[static_cast<std::size_t>(trace::BlobFate::kDelivered)]);
  return table;
}

nlohmann::ordered_json BlobFunnel::json() const {
  nlohmann::ordered_json json;
  json["records"] = {{"left", records_[0]}, {"right", records_[1]}};
  for (int i = 0; i < trace::kBlobFates; ++i) {
    const auto& counts = ends_[static_cast<std::size_t>(i)];
    json["ends"][trace::keyOf(static_cast<trace::BlobFate>(i))] = {{"left", counts[0]},
                                                                   {"right", counts[1]}};
  }
  json["closes"] = closes();
  return json;
}

}  // namespace algtrack
