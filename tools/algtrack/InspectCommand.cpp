#include <alg_kit/analysis/BlobFunnel.h>
#include <alg_kit/analysis/RecordingSurvey.h>
#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/recording/Recording.h>
#include <alg_kit/trace/PipelineTrace.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/PacketListing.h>
#include <tools/algtrack/SurveyTables.h>
#include <tools/algtrack/terminal/ExitStatus.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/Progress.h>

#include <CLI/CLI.hpp>
#include <cstring>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

namespace algtrack {
namespace {

using Json = nlohmann::ordered_json;

struct InspectOptions {
  std::string file;
  std::optional<std::int64_t> packet;
  std::optional<std::int64_t> explain;
  bool json = false;
};

/// Compares what the trace's stages delivered with what was recorded.
class CrossCheck {
 public:
  void add(const session::Entry& entry, const std::optional<algorithm::ResultBlock>& block) {
    if (entry.blocks.empty() && !block) return;
    ++compared_;
    const bool equal = entry.blocks.size() == 1 && block &&
                       std::memcmp(&entry.blocks[0].block, &*block, sizeof *block) == 0;
    if (equal) {
      ++equal_;
    } else if (!firstDifference_) {
      firstDifference_ = entry.call.index;
    }
  }

  bool agrees() const { return equal_ == compared_; }

  std::string text() const {
    return std::to_string(equal_) + " of " + std::to_string(compared_) +
           " delivered blocks are those that the trace arrives at, byte by byte";
  }

  std::string complaint(const recording::Metadata& metadata) const {
    return "the trace arrives at other blocks than the recorded ones (" +
           std::to_string(compared_ - equal_) + " of " + std::to_string(compared_) +
           ", first at call " + std::to_string(firstDifference_.value_or(-1)) + ")" +
           (metadata.droppedCalls > 0
                ? ": the recorder dropped " + std::to_string(metadata.droppedCalls) + " calls"
                : ": recorded with library version " + metadata.libraryVersion + " on " +
                      metadata.platform);
  }

  Json json() const {
    Json result = {{"compared", compared_}, {"equal", equal_}};
    if (firstDifference_) result["firstDifferentCall"] = *firstDifference_;
    return result;
  }

 private:
  std::int64_t compared_ = 0, equal_ = 0;
  std::optional<std::int64_t> firstDifference_;
};

Json fileJson(const recording::RecordingReader& reader, const analysis::RecordingSurvey& survey) {
  const recording::Metadata& metadata = reader.metadata();
  return {{"file", reader.path()},         {"libraryVersion", metadata.libraryVersion},
          {"platform", metadata.platform}, {"clock", metadata.clock},
          {"complete", metadata.complete}, {"droppedCalls", metadata.droppedCalls},
          {"seconds", survey.seconds()},   {"calls", survey.calls()},
          {"packets", survey.packets()},   {"packetsDecoded", survey.packetsDecoded()},
          {"truth", reader.hasTruth()}};
}

Table configurationTable(const recording::RecordingReader& reader) {
  Table table({"call", "product type", "baseline", "fx left", "fx right"});
  for (const recording::Configuration& configuration : reader.configurations()) {
    if (!configuration.calibration) {
      table.addRow({configuration.call, configuration.productType, "none given", "-", "-"});
      continue;
    }
    const algorithm::StereoCalibration& c = *configuration.calibration;
    table.addRow({configuration.call, configuration.productType,
                  Cell(calibration::baselineOf(c), 3), Cell(c.leftIntrinsics[0], 3),
                  Cell(c.rightIntrinsics[0], 3)});
  }
  return table;
}

void printSection(const std::string& title, const Table& table) {
  std::cout << "\n" << title << "\n";
  if (table.empty()) {
    std::cout << "none\n";
  } else {
    table.print(std::cout);
  }
}

void inspectFile(const InspectOptions& options) {
  const recording::RecordingReader reader(options.file);
  trace::PipelineTrace trace;
  analysis::RecordingSurvey survey;
  analysis::BlobFunnel funnel;
  CrossCheck check;
  {
    Progress progress("inspecting", reader.callCount());
    auto entries = reader.entries();
    session::Entry entry;
    while (entries.next(entry)) {
      const trace::PacketTrace* const packet = trace.feed(entry.call);
      survey.add(entry, packet);
      if (packet != nullptr) funnel.add(*packet);
      if (entry.call.kind == session::CallKind::kInputStream) check.add(entry, trace.block());
      progress.show(survey.calls());
    }
  }
  if (!funnel.closes()) throw std::logic_error(options.file + ": the funnel's sums do not close");

  const Json file = fileJson(reader, survey);
  if (options.json) {
    Json json = file;
    json["configurations"] = configurationTable(reader).json();
    json["operations"] = callTable(survey).json();
    json["streams"] = streamTable(survey).json();
    json["messages"] = logTable(survey).json();
    json["packetBytes"] = byteTable(survey).json();
    json["blobs"] = blobTable(survey).json();
    json["funnel"] = funnelJson(funnel);
    json["crossCheck"] = check.json();
    std::cout << json.dump(2) << "\n";
  } else {
    for (const auto& [key, value] : file.items())
      std::cout << key << ": " << (value.is_string() ? value.get<std::string>() : value.dump())
                << "\n";
    printSection("Configurations (Init)", configurationTable(reader));
    printSection("Operations", callTable(survey));
    printSection("Streams", streamTable(survey));
    printSection("Messages of the library", logTable(survey));
    printSection("Packets, byte by byte", byteTable(survey));
    printSection("Blobs by id", blobTable(survey));
    printSection("Where the blobs ended", funnelTable(funnel));
    std::cout << "\nCross-check: " << check.text() << "\n";
  }
  if (!check.agrees())
    throw SomethingFound(options.file + ": " + check.complaint(reader.metadata()));
}

/// Why the library did not decode a packet.
std::string undecodedReason(const session::Entry& entry, bool configured) {
  if (!entry.logs.empty()) {
    std::string text = entry.logs.front().text;
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return "the library refused it: " + text;
  }
  if (!entry.call.pointerGiven && entry.call.length != 0) return "no buffer was given";
  if (entry.call.returned == 0) return "the library refused its length";
  if (entry.call.length == 0) return "it is empty";
  return configured ? "the library delivered nothing" : "the library was not configured yet (Init)";
}

void printPacket(const InspectOptions& options, const session::Entry& entry,
                 const trace::PacketTrace& packet, const trace::PipelineTrace& trace,
                 std::int64_t number) {
  const bool explain = options.explain.has_value();
  const char* const message = hid::messageOf(packet.status);
  std::string report = message == nullptr ? "none" : message;
  while (!report.empty() && report.back() == '\n') report.pop_back();

  if (options.json) {
    Json json = {{"packet", number},
                 {"call", entry.call.index},
                 {"streamType", packet.streamType},
                 {"productType", packet.productType},
                 {"startNs", entry.call.startNs},
                 {"payloadBytes", entry.call.payload.size()},
                 {"decoderReport", message == nullptr ? Json(nullptr) : Json(report)}};
    if (const auto right = deviceCheckByteRight(entry.call, packet))
      json["deviceCheckByteRight"] = *right;
    if (explain) {
      json["blobs"] = blobTable(packet).json();
      json["points"] = pointTable(packet).json();
      json["delivered"] = objectTable(*trace.block()).json();
    } else {
      json["bytes"] = byteTable(entry.call, packet).json();
    }
    std::cout << json.dump(2) << "\n";
    return;
  }

  std::cout << "Packet " << number << ": call " << entry.call.index << ", stream type "
            << packet.streamType << ", product type " << packet.productType << ", "
            << entry.call.payload.size() << " bytes\nReport of the decoder: " << report << "\n";
  if (const auto right = deviceCheckByteRight(entry.call, packet))
    std::cout << "Check byte that the device sent: " << (*right ? "right" : "WRONG")
              << " (the library looks four bytes behind it in stamped packets)\n";
  if (!explain) {
    printSection("Bytes (offsets from the payload's first byte)", byteTable(entry.call, packet));
    return;
  }
  printSection("Blobs (pixels, as seen; merged blobs at their merged place)", blobTable(packet));
  printSection("Points (right camera's frame, before smoothing)", pointTable(packet));
  printSection("Delivered (y and z mirrored)", objectTable(*trace.block()));
}

void inspectPacket(const InspectOptions& options) {
  const std::int64_t number = options.explain ? *options.explain : *options.packet;
  const recording::RecordingReader reader(options.file);
  const auto target = number < 0 ? std::nullopt : reader.packetCall(number);
  if (!target) {
    std::int64_t packets = 0;
    auto entries = reader.entries();
    for (session::Entry entry; entries.next(entry);)
      packets += entry.call.kind == session::CallKind::kInputStream &&
                 algorithm::isPacketStream(entry.call.type);
    throw std::runtime_error(options.file + ": " +
                             (packets == 0 ? std::string("expected a packet, found none")
                                           : "expected a packet number from 0 to " +
                                                 std::to_string(packets - 1) + ", found " +
                                                 std::to_string(number)));
  }

  // The frames before decide too: what they left behind in the decoder, the filter and the objects.
  trace::PipelineTrace trace;
  Progress progress("inspecting", *target + 1);
  bool configured = false;
  auto entries = reader.entries();
  for (session::Entry entry; entries.next(entry);) {
    const trace::PacketTrace* const packet = trace.feed(entry.call);
    progress.show(entry.call.index + 1);
    configured |= entry.call.kind == session::CallKind::kInit && entry.call.returned == 1;
    if (entry.call.index != *target) continue;
    if (packet == nullptr)
      throw std::runtime_error(options.file + ": packet " + std::to_string(number) + " (call " +
                               std::to_string(*target) +
                               ") was not decoded: " + undecodedReason(entry, configured));
    printPacket(options, entry, *packet, trace, number);
    CrossCheck check;
    check.add(entry, trace.block());
    if (!check.agrees())
      throw SomethingFound(options.file + ": " + check.complaint(reader.metadata()));
    return;
  }
}

}  // namespace

void addInspectCommand(CLI::App& app) {
  auto* const command = app.add_subcommand(
      "inspect",
      "Shows what is in a recording, and why there is no point.\n"
      "\n"
      "  algtrack inspect walk.algrec                what is in it, and where the blobs ended\n"
      "  algtrack inspect walk.algrec --packet 17    every byte of a packet with its meaning\n"
      "  algtrack inspect walk.algrec --explain 17   what became of each of its blobs, and why\n"
      "  algtrack inspect walk.algrec --json         the same for programs\n");
  const auto options = std::make_shared<InspectOptions>();
  command->add_option("file", options->file, "Recording")->required();
  auto* const packet =
      command
          ->add_option("--packet", options->packet,
                       "Number of a device packet in the file, from 0: list its bytes")
          ->check(wholeNumber());
  command
      ->add_option("--explain", options->explain,
                   "Number of a device packet: follow its blobs to where they ended")
      ->check(wholeNumber())
      ->excludes(packet);
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options] {
    if (options->packet || options->explain) {
      inspectPacket(*options);
    } else {
      inspectFile(*options);
    }
  });
}

}  // namespace algtrack
