#include <alg_factory/api/Constants.h>
#include <alg_kit/analysis/BlobFunnel.h>
#include <alg_kit/analysis/CheckByte.h>
#include <alg_kit/analysis/ExplainingCommand.h>
#include <alg_kit/analysis/RecordingSurvey.h>
#include <alg_kit/analysis/WorstMoments.h>
#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/trace/PipelineTrace.h>
#include <tools/algtrack/Asked.h>
#include <tools/algtrack/Inspect.h>
#include <tools/algtrack/RecordingNotes.h>
#include <tools/algtrack/SurveyTables.h>
#include <tools/algtrack/terminal/Progress.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace algtrack {
namespace {

using analysis::Moment;
using analysis::WorstMoment;

constexpr std::size_t kMostListed = 20;  // for a person; --json lists all

/// Packets by their own check bytes.
struct CheckBytes {
  std::int64_t stamped = 0;  ///< packets with a check byte of the device's in front of a report
  std::vector<Moment> wrong;
};

struct Findings {
  analysis::RecordingSurvey survey;
  analysis::BlobFunnel funnel;
  analysis::WorstMoments worst;
  CheckBytes checkBytes;
  analysis::CrossCheck crossCheck;
  double endSeconds = 0;  ///< of the recording
};

void gather(const recording::RecordingReader& reader, const analysis::TimeRange& range,
            Findings& found) {
  trace::PipelineTrace trace;
  analysis::MomentCounter moments;
  const bool hasTruth = reader.hasTruth();
  Progress progress("inspecting", reader.callCount());
  auto entries = reader.entries();
  int productType = 0;
  std::int64_t done = 0;
  for (session::Entry entry; entries.next(entry);) {
    const session::Call& call = entry.call;
    const trace::PacketTrace* const packet = trace.feed(call);
    if (call.kind == session::CallKind::kInit) productType = call.type;
    const double seconds = found.endSeconds = moments.secondsOf(call);
    const auto moment = moments.next(call);
    const bool inRange = range.contains(seconds);
    found.crossCheck.add(entry, trace.block(), moment, inRange);
    progress.show(++done);
    if (!inRange) continue;
    found.survey.add(entry, packet, seconds, moment);
    if (packet != nullptr) found.funnel.add(*packet);
    if (!moment) continue;
    bool corrupt = false;
    if (packet != nullptr) {
      corrupt = analysis::deviceCheckByteRight(call, *packet) == false;
      found.checkBytes.stamped += packet->streamType == algorithm::kStampedPacket;
      if (corrupt) found.checkBytes.wrong.push_back(*moment);
    }
    const auto& block = trace.block();
    found.worst.add(*moment, productType, block ? &*block : nullptr,
                    hasTruth ? reader.truthOf(call.index) : std::vector<session::TruthRow>(),
                    corrupt);
  }
  if (!found.funnel.closes())
    throw std::logic_error(reader.path() + ": the funnel's sums do not close");
}

Json fileJson(const recording::RecordingReader& reader, const analysis::RecordingSurvey& survey) {
  const recording::Metadata& metadata = reader.metadata();
  Json json = {{"file", reader.path()},
               {"library_version", metadata.libraryVersion},
               {"platform", metadata.platform},
               {"clock", metadata.clock},
               {"complete", metadata.complete},
               {"journal_missing", metadata.journalMissing},
               {"dropped_calls", metadata.droppedCalls},
               {"duration_s", survey.seconds()},
               {"calls", survey.calls()},
               {"packets", survey.packets()},
               {"packets_decoded", survey.packetsDecoded()},
               {"has_truth", reader.hasTruth()}};
  for (const char* const key : {"replay_of", "replay_changes"}) {
    const auto fact = metadata.values.find(key);
    if (fact != metadata.values.end()) json[key] = fact->second;
  }
  return json;
}

Table configurationTable(const recording::RecordingReader& reader) {
  Table table({"call",
               {"product type", "product_type"},
               {"baseline", "baseline_mm"},
               {"fx left", "fx_left_px"},
               {"fx right", "fx_right_px"}});
  for (const recording::Configuration& configuration : reader.configurations()) {
    if (!configuration.calibration) {
      table.addRow({configuration.call, configuration.productType, Cell::none(), Cell::none(),
                    Cell::none()});
      continue;
    }
    const algorithm::StereoCalibration& c = *configuration.calibration;
    table.addRow({configuration.call, configuration.productType,
                  Cell(calibration::baselineOf(c), 3), Cell(c.leftIntrinsics[0], 3),
                  Cell(c.rightIntrinsics[0], 3)});
  }
  return table;
}

Table momentTable(const std::vector<Moment>& moments, std::size_t most) {
  Table table({"packet", "call", {"time s", "time_s"}});
  for (std::size_t i = 0; i < std::min(moments.size(), most); ++i)
    table.addRow({moments[i].packet, moments[i].call, Cell(moments[i].seconds, 3)});
  return table;
}

Table worstTable(const std::string& file, const std::vector<WorstMoment>& worst) {
  Table table({"moment", "object", "size", "time s", "packet", "call", "explained by"});
  for (const WorstMoment& moment : worst) {
    char size[40] = "-";
    if (moment.kind == WorstMoment::Kind::kGap)
      std::snprintf(size, sizeof size, "%.3f s", moment.value);
    else if (moment.kind != WorstMoment::Kind::kCorrupt)
      std::snprintf(size, sizeof size, "%.1f mm", moment.value);
    table.addRow({analysis::describe(moment.kind),
                  moment.object < 0 ? Cell::none() : Cell(moment.object), size,
                  Cell(moment.first.seconds, 3), moment.first.packet, moment.first.call,
                  analysis::explainingCommand(moment, file)});
  }
  return table;
}

Json worstJson(const std::string& file, const std::vector<WorstMoment>& worst) {
  Json json = Json::array();
  for (const WorstMoment& moment : worst) {
    Json& row = json.emplace_back();
    row["kind"] = analysis::keyOf(moment.kind);
    row["object"] = moment.object < 0 ? Json(nullptr) : Json(moment.object);
    if (moment.kind == WorstMoment::Kind::kGap)
      row["duration_s"] = moment.value;
    else if (moment.kind != WorstMoment::Kind::kCorrupt)
      row["distance_mm"] = moment.value;
    row["first"] = momentJson(moment.first);
    row["last"] = momentJson(moment.last);
    row["command"] = analysis::explainingCommand(moment, file);
  }
  return json;
}

void printCheckBytes(const CheckBytes& checkBytes, std::int64_t packets) {
  std::cout << "\nPackets whose own check byte is wrong: " << checkBytes.wrong.size() << " of "
            << packets << "\n";
  if (checkBytes.stamped > 0)
    std::cout << "(The library's message \"check byte error\" is normal for the "
              << checkBytes.stamped
              << " stamped packets: it looks four\nbytes behind the device's check byte, and the "
                 "records are used all the same.)\n";
  if (checkBytes.wrong.empty()) return;
  momentTable(checkBytes.wrong, kMostListed).print(std::cout);
  if (checkBytes.wrong.size() > kMostListed)
    std::cout << "... and " << checkBytes.wrong.size() - kMostListed << " more; --json lists all\n";
}

void printFindings(const recording::RecordingReader& reader, const Findings& found) {
  const analysis::RecordingSurvey& survey = found.survey;
  const std::string& path = reader.path();
  const Json file = fileJson(reader, survey);
  for (const auto& [key, value] : file.items()) {
    std::string name = key == "duration_s" ? "duration, s" : key;
    std::replace(name.begin(), name.end(), '_', ' ');
    std::cout << oneLine(name + ": " +
                         (value.is_string() ? value.get<std::string>() : value.dump()))
              << "\n";
  }
  if (reader.metadata().journalMissing)
    std::cout << oneLine("(its journal " + path +
                         "-wal is not beside it: the latest calls are in there)")
              << "\n";
  printSection("Configurations (Init)", configurationTable(reader));
  printSection("Operations", callTable(survey));
  printSection("Streams", streamTable(survey));
  printSection("Messages of the library", logTable(survey));
  if (survey.messagesLeftOut() > 0)
    std::cout << "... and " << survey.messagesLeftOut() << " messages of other texts\n";
  printCheckBytes(found.checkBytes, survey.packetsDecoded());
  printSection("Packets, byte by byte", byteTable(survey));
  printSection("Blobs by id", blobTable(survey));
  printSection("Where the blobs ended", funnelTable(found.funnel));
  std::cout << "\nCross-check: " << found.crossCheck.text() << "\n";
  printSection("Where to look first", worstTable(path, found.worst.list()));
}

}  // namespace

void inspectRecording(const InspectOptions& options) {
  const recording::RecordingReader reader(options.file);
  noteUnit(reader);
  Findings found;
  gather(reader, options.range, found);
  if (options.range.given() && found.survey.calls() == 0)
    throw nothingInTime(reader, "calls", found.endSeconds);
  if (options.json) {
    Json json = fileJson(reader, found.survey);
    json["range"] = rangeJson(options.range);
    json["configurations"] = configurationTable(reader).json();
    json["operations"] = callTable(found.survey).json();
    json["streams"] = streamTable(found.survey).json();
    json["messages"] = logTable(found.survey).json();
    json["messages_left_out"] = found.survey.messagesLeftOut();
    json["wrong_check_bytes"] =
        momentTable(found.checkBytes.wrong, found.checkBytes.wrong.size()).json();
    json["packet_bytes"] = byteTable(found.survey).json();
    json["blobs"] = blobTable(found.survey).json();
    json["funnel"] = funnelJson(found.funnel);
    json["cross_check"] = crossCheckJson(found.crossCheck);
    json["worst_moments"] = worstJson(reader.path(), found.worst.list());
    printJson(json);
  } else {
    printFindings(reader, found);
  }
  requireAgreement(found.crossCheck.problem(reader));
}

}  // namespace algtrack
