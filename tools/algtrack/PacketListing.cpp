#include <alg_kit/trace/FateText.h>
#include <tools/algtrack/PacketListing.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace algtrack {
namespace {

using algorithm::kStampSize;

constexpr int kBytesPerRow = 16;
constexpr const char* kCameras[2] = {"left", "right"};

std::string hex(const std::uint8_t* bytes, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%s%02X", i > 0 ? " " : "", bytes[i]);
    text += digits;
  }
  return text;
}

class ByteLister {
 public:
  ByteLister(const session::Call& call, const trace::PacketTrace& packet)
      : call_(call),
        packet_(packet),
        shift_(packet.streamType == algorithm::kStampedPacket ? kStampSize : 0) {}

  Table list() {
    if (shift_ > 0) {
      const auto& p = call_.payload;
      const std::uint32_t stamp = std::uint32_t{p[0]} | std::uint32_t{p[1]} << 8 |
                                  std::uint32_t{p[2]} << 16 | std::uint32_t{p[3]} << 24;
      table_.addRow({0, kStampSize, hex(p.data(), kStampSize),
                     "frame stamp: " + std::to_string(stamp) + " us"});
    }
    for (const trace::PacketPiece& piece : packet_.pieces) addPiece(piece);
    if (call_.payload.size() > static_cast<std::size_t>(packet_.length + shift_)) {
      const int from = packet_.length + shift_;
      const int size = static_cast<int>(call_.payload.size()) - from;
      table_.addRow({from, size, "...", "not read: a packet is cut to 512 bytes"});
    }
    return table_;
  }

 private:
  using Kind = trace::PacketPiece::Kind;

  void addPiece(const trace::PacketPiece& piece) {
    switch (piece.kind) {
      case Kind::kRecord:
        addRecord(piece);
        break;
      case Kind::kCheck: {
        const std::uint8_t found = packet_.frame[static_cast<std::size_t>(piece.offset)];
        const std::uint8_t sum = hid::checkSum(packet_.frame, piece.offset);
        char text[80];
        std::snprintf(text, sizeof text, "check byte: %s (sum of the bytes before it: %02X)",
                      found == sum ? "right" : "WRONG", sum);
        addRow(piece.offset, 1, text);
        break;
      }
      case Kind::kLeading:
        addRun(piece, piece.offset + piece.size == packet_.length - 1 && !hasStart()
                          ? "no start word found: skipped"
                          : "before the start word: skipped");
        break;
      case Kind::kStart:
        addRow(piece.offset, piece.size, "start word");
        break;
      default:
        addRun(piece, std::string("REFUSED: ") +
                          refusalOf(piece, packet_.frame, packet_.length, packet_.blobIdCount));
    }
  }

  bool hasStart() const {
    return std::any_of(packet_.pieces.begin(), packet_.pieces.end(),
                       [](const trace::PacketPiece& piece) { return piece.kind == Kind::kStart; });
  }

  void addRecord(const trace::PacketPiece& piece) {
    const hid::RawBlob& raw = piece.step.blob;
    const std::string name = "record " + std::to_string(records_++) + ": ";
    const auto centre = [&](std::uint32_t sum) {
      return raw.weight == 0 ? std::string("no centre: weight 0")
                             : numberText(static_cast<double>(sum) / raw.weight, "%.3f px");
    };
    addRow(piece.offset, 3, name + "weight " + std::to_string(raw.weight));
    addRow(piece.offset + 3, 1,
           name + "camera " + std::to_string(piece.step.camera) + " (" +
               kCameras[piece.step.camera] + "), id " + std::to_string(raw.id));
    addRow(piece.offset + 4, 4,
           name + "sumX " + std::to_string(raw.sumX) + ", x = " + centre(raw.sumX));
    addRow(piece.offset + 8, 4,
           name + "sumY " + std::to_string(raw.sumY) + ", y = " + centre(raw.sumY));
  }

  void addRun(const trace::PacketPiece& piece, const std::string& meaning) {
    for (int done = 0; done < piece.size; done += kBytesPerRow)
      addRow(piece.offset + done, std::min(kBytesPerRow, piece.size - done), meaning);
  }

  void addRow(int offset, int size, std::string meaning) {
    const int behind = offset + size + shift_ - static_cast<int>(call_.payload.size());
    if (behind > 0)
      meaning += behind >= size ? " [zeros that the library keeps behind a stamped packet]"
                                : " [the last " + std::to_string(behind) +
                                      " are zeros that the library keeps behind a stamped packet]";
    table_.addRow({offset + shift_, size, hex(packet_.frame.data() + offset, size), meaning});
  }

  const session::Call& call_;
  const trace::PacketTrace& packet_;
  int shift_;  ///< of the packet in the payload
  int records_ = 0;
  Table table_{{"offset", {"size", "size_bytes"}, "bytes", "meaning"}};
};

}  // namespace

Table byteTable(const session::Call& call, const trace::PacketTrace& packet) {
  return ByteLister(call, packet).list();
}

Table blobTable(const trace::PacketTrace& packet, std::optional<int> object) {
  Table table({"blob",
               "camera",
               "id",
               {"x", "x_px"},
               {"y", "y_px"},
               {"diameter", "diameter_px"},
               "end",
               "reason"});
  for (std::size_t i = 0; i < packet.blobs.size(); ++i) {
    const trace::TracedBlob& blob = packet.blobs[i];
    if (object && blob.raw.id != *object) continue;
    table.addRow({static_cast<int>(i), kCameras[blob.camera], int{blob.raw.id}, Cell(blob.x, 3),
                  Cell(blob.y, 3), blob.diameter, trace::keyOf(blob.fate),
                  trace::reasonOf(packet, blob)});
  }
  return table;
}

Table pointTable(const trace::PacketTrace& packet, std::optional<int> object) {
  Table table({"id",
               "left blob",
               "right blob",
               {"epipolar distance", "epipolar_px"},
               {"ray gap", "ray_gap_mm"},
               {"x", "x_mm"},
               {"y", "y_mm"},
               {"z", "z_mm"},
               "end"});
  for (const trace::TracedPoint& point : packet.points) {
    if (object && point.id != *object) continue;
    table.addRow({point.id, point.left, point.right, Cell(point.epipolarDistance, 3),
                  Cell(point.rayGap, 3), Cell(point.position[0], 3), Cell(point.position[1], 3),
                  Cell(point.position[2], 3), trace::keyOf(point.fate)});
  }
  return table;
}

Table objectTable(const algorithm::ResultBlock& block, std::optional<int> object) {
  Table table({"object", {"x", "x_mm"}, {"y", "y_mm"}, {"z", "z_mm"}});
  for (const algorithm::TrackedPoint& record : block.records) {
    if (record.id == -1 || (object && record.id != *object)) continue;
    table.addRow({record.id, Cell(static_cast<double>(record.x), 3),
                  Cell(static_cast<double>(record.y), 3), Cell(static_cast<double>(record.z), 3)});
  }
  return table;
}

}  // namespace algtrack
