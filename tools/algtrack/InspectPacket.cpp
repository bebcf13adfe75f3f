#include <alg_factory/api/Constants.h>
#include <alg_kit/analysis/CheckByte.h>
#include <alg_kit/analysis/ObjectHistory.h>
#include <alg_kit/trace/PipelineTrace.h>
#include <tools/algtrack/CrossCheck.h>
#include <tools/algtrack/Inspect.h>
#include <tools/algtrack/PacketListing.h>
#include <tools/algtrack/terminal/Progress.h>

#include <iostream>
#include <stdexcept>
#include <string>

namespace algtrack {
namespace {

using analysis::Moment;

/// Why the library did not decode a packet.
std::string undecodedReason(const session::Entry& entry, bool configured) {
  if (!entry.logs.empty()) return "the library refused it: " + oneLine(entry.logs.front().text);
  if (!entry.call.pointerGiven && entry.call.length != 0) return "no buffer was given";
  if (entry.call.returned == 0) return "the library refused its length";
  if (entry.call.length == 0) return "it is empty";
  return configured ? "the library delivered nothing" : "the library was not configured yet (Init)";
}

/// Object 3 alone, or every object that the product tracks.
std::vector<int> objectsOf(const InspectOptions& options, const trace::PacketTrace& packet) {
  if (options.object) return {*options.object};
  std::vector<int> objects;
  for (int object = 0; object < algorithm::objectCount(packet.productType); ++object)
    objects.push_back(object);
  return objects;
}

std::string placeText(const algorithm::ResultBlock& block, int object) {
  for (const algorithm::TrackedPoint& record : block.records) {
    if (record.id != object) continue;
    char text[100];
    std::snprintf(text, sizeof text, "%.3f %.3f %.3f", static_cast<double>(record.x),
                  static_cast<double>(record.y), static_cast<double>(record.z));
    return text;
  }
  return "";
}

void printObjects(const InspectOptions& options, const trace::PacketTrace& packet,
                  const algorithm::ResultBlock& block) {
  for (const int object : objectsOf(options, packet)) {
    const analysis::ObjectEnd end = analysis::objectEnd(&packet, &block, object);
    std::cout << "object " << object << "  ";
    if (!end.delivered)
      std::cout << "missing: " << end.detail;
    else if (end.held)
      std::cout << "held at " << placeText(block, object) << ": " << end.detail;
    else
      std::cout << "delivered at " << placeText(block, object);
    std::cout << "\n";
  }
}

Json objectsJson(const InspectOptions& options, const trace::PacketTrace& packet,
                 const algorithm::ResultBlock& block) {
  Json json = Json::array();
  for (const int object : objectsOf(options, packet)) {
    const analysis::ObjectEnd end = analysis::objectEnd(&packet, &block, object);
    Json& row = json.emplace_back();
    row["object"] = object;
    row["delivered"] = end.delivered;
    row["held"] = end.held;
    row["reason"] = end.key.empty() ? Json(nullptr) : Json(jsonKey(end.key));
    row["text"] = end.detail;
  }
  return json;
}

void printPacket(const InspectOptions& options, const session::Entry& entry, const Moment& moment,
                 const trace::PacketTrace& packet, const algorithm::ResultBlock& block) {
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
      json["objects"] = objectsJson(options, packet, block);
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
  if (options.explain) printObjects(options, packet, block);
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
  const Moment moment = analysis::findMoment(reader, options.moment);

  // The frames before decide too: what they left behind in the decoder, the filter and the objects.
  trace::PipelineTrace trace;
  CrossCheck check;
  Progress progress("inspecting", moment.call + 1);
  bool configured = false;
  auto entries = reader.entries();
  for (session::Entry entry; entries.next(entry);) {
    const trace::PacketTrace* const packet = trace.feed(entry.call);
    progress.show(entry.call.index + 1);
    configured |= entry.call.kind == session::CallKind::kInit && entry.call.returned == 1;
    const bool wanted = entry.call.index == moment.call;
    check.add(entry, trace.block(), wanted ? std::optional(moment) : std::nullopt);
    if (!wanted) continue;
    const auto& block = trace.block();
    if (packet == nullptr || !block)
      throw recording::RecordingError(reader.path(), "expected a packet that was decoded, found " +
                                                         analysis::textOf(moment) + ": " +
                                                         undecodedReason(entry, configured));
    if (options.object && *options.object >= algorithm::objectCount(packet->productType))
      throw recording::RecordingError(reader.path(), "expected an object that product type " +
                                                         std::to_string(packet->productType) +
                                                         " tracks, found " +
                                                         std::to_string(*options.object));
    printPacket(options, entry, moment, *packet, *block);
    check.requireAgreement(reader);
    return;
  }
}

}  // namespace algtrack
