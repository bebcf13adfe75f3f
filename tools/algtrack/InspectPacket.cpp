#include <alg_kit/analysis/CheckByte.h>
#include <alg_kit/analysis/Explanation.h>
#include <tools/algtrack/Inspect.h>
#include <tools/algtrack/PacketListing.h>
#include <tools/algtrack/RecordingNotes.h>
#include <tools/algtrack/terminal/Progress.h>

#include <iostream>
#include <string>

namespace algtrack {
namespace {

Json objectsJson(const analysis::Explanation& explanation) {
  Json json = Json::array();
  for (const analysis::ObjectExplanation& object : explanation.objects) {
    Json& row = json.emplace_back();
    row["object"] = object.object;
    row["delivered"] = object.end.delivered;
    row["held"] = object.end.held;
    row["reason"] = object.end.key.empty() ? Json(nullptr) : Json(jsonKey(object.end.key));
    row["text"] = object.end.detail;
  }
  return json;
}

void printPacket(const InspectOptions& options, const analysis::Explanation& explanation) {
  const auto& [moment, entry, packet, block, objects, disagreement] = explanation;
  const char* const message = hid::messageOf(packet.status);
  const std::string report = message == nullptr ? "none" : oneLine(message);
  const auto checkByteRight = analysis::deviceCheckByteRight(entry.call, packet);
  if (options.json) {
    Json json;
    json["file"] = options.file;
    json.update(momentJson(moment));
    json["stream_type"] = packet.streamType;
    json["product_type"] = packet.productType;
    json["start_ns"] = entry.call.startNs;
    json["payload_bytes"] = entry.call.payload.size();
    json["decoder_report"] = message == nullptr ? Json(nullptr) : Json(report);
    json["device_check_byte_right"] = checkByteRight ? Json(*checkByteRight) : Json(nullptr);
    if (options.explain) {
      json["objects"] = objectsJson(explanation);
      json["blobs"] = blobTable(packet, options.object).json();
      json["points"] = pointTable(packet, options.object).json();
      json["delivered"] = objectTable(block, options.object).json();
    } else {
      json["bytes"] = byteTable(entry.call, packet).json();
    }
    printJson(json);
    return;
  }

  std::cout << analysis::textOf(moment) << "\n";
  if (options.explain)
    for (const analysis::ObjectExplanation& object : objects)
      std::cout << "object " << object.object << "  " << object.text << "\n";
  std::cout << "Stream type " << packet.streamType << ", product type " << packet.productType
            << ", " << entry.call.payload.size() << " bytes\nReport of the decoder: " << report
            << "\n";
  if (checkByteRight)
    std::cout << "Check byte that the device sent: " << (*checkByteRight ? "right" : "WRONG")
              << (packet.streamType == algorithm::kStampedPacket
                      ? " (the library looks four bytes behind it in stamped packets)\n"
                      : "\n");
  if (!options.explain) {
    printSection("Bytes (offsets from the payload's first byte)", byteTable(entry.call, packet));
    return;
  }
  printSection("Blobs (pixels, as seen; merged blobs at their merged place)",
               blobTable(packet, options.object));
  printSection("Points (right camera's frame, before smoothing)",
               pointTable(packet, options.object));
  printSection("Delivered (y and z mirrored)", objectTable(block, options.object));
}

}  // namespace

void inspectPacket(const InspectOptions& options) {
  const recording::RecordingReader reader(options.file);
  noteUnit(reader);
  Progress progress("inspecting", reader.callCount());
  const analysis::Explanation explanation = analysis::explainPacket(
      reader, options.moment, options.object, [&](std::int64_t call) { progress.show(call + 1); });
  printPacket(options, explanation);
  requireAgreement(explanation.disagreement);
}

}  // namespace algtrack
