#include <alg_factory/api/Constants.h>
#include <alg_kit/analysis/BlobFunnel.h>
#include <alg_kit/analysis/ObjectHistory.h>
#include <alg_kit/trace/PipelineTrace.h>
#include <tools/algtrack/Asked.h>
#include <tools/algtrack/Inspect.h>
#include <tools/algtrack/RecordingNotes.h>
#include <tools/algtrack/SurveyTables.h>
#include <tools/algtrack/terminal/Progress.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace algtrack {
namespace {

using analysis::MissingRun;

struct ObjectFindings {
  explicit ObjectFindings(int object) : history(object), funnel(object) {}

  analysis::ObjectHistory history;
  analysis::BlobFunnel funnel;
  analysis::CrossCheck crossCheck;
  double endSeconds = 0;  ///< of the recording
};

void gather(const recording::RecordingReader& reader, const analysis::TimeRange& range,
            ObjectFindings& found) {
  trace::PipelineTrace trace;
  analysis::MomentCounter moments;
  Progress progress("inspecting", reader.callCount());
  auto entries = reader.entries();
  int productType = 0;
  std::int64_t done = 0;
  for (session::Entry entry; entries.next(entry);) {
    const session::Call& call = entry.call;
    const trace::PacketTrace* const packet = trace.feed(call);
    if (call.kind == session::CallKind::kInit) productType = call.type;
    found.endSeconds = moments.secondsOf(call);
    const auto moment = moments.next(call);
    const bool counts = moment && range.contains(moment->seconds) &&
                        found.history.object() < algorithm::objectCount(productType);
    found.crossCheck.add(entry, trace.block(), moment, counts);
    progress.show(++done);
    if (!counts) continue;
    const auto& block = trace.block();
    found.history.add(*moment, packet, block ? &*block : nullptr);
    if (packet != nullptr) found.funnel.add(*packet);
  }
}

std::string reasonsText(const MissingRun& run) {
  std::string text;
  for (const MissingRun::Reason& reason : run.reasons)
    text += (text.empty() ? "" : ", ") + reason.text + " (" + std::to_string(reason.packets) + ")";
  return text;
}

std::string spanText(const std::string& from, const std::string& to) {
  return from + " to " + to;
}

/// One line a run: its packets, times, length, reasons and calls, aligned.
void printRuns(const std::vector<MissingRun>& runs) {
  using Line = std::vector<std::string>;
  std::vector<Line> lines;
  for (const MissingRun& run : runs) {
    std::string from = analysis::secondsText(run.first.seconds);
    from.resize(from.size() - 2);  // the unit stands behind the second number
    lines.push_back(
        {"packets " + spanText(std::to_string(run.first.packet), std::to_string(run.last.packet)),
         spanText(from, analysis::secondsText(run.last.seconds)),
         std::to_string(run.packets) + (run.packets == 1 ? " packet" : " packets"),
         reasonsText(run),
         "calls " + spanText(std::to_string(run.first.call), std::to_string(run.last.call))});
  }
  if (lines.empty()) return;
  std::vector<std::size_t> widths(lines[0].size(), 0);
  for (const Line& line : lines)
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  for (const Line& line : lines) {
    std::string text = "missing  ";
    for (std::size_t i = 0; i + 1 < line.size(); ++i)
      text += line[i] + std::string(widths[i] - line[i].size() + 3, ' ');
    std::cout << text << line.back() << "\n";
  }
}

Json runsJson(const std::vector<MissingRun>& runs) {
  Json json = Json::array();
  for (const MissingRun& run : runs) {
    Json& row = json.emplace_back();
    row["first"] = momentJson(run.first);
    row["last"] = momentJson(run.last);
    row["packets"] = run.packets;
    row["reasons"] = Json::array();
    for (const MissingRun::Reason& reason : run.reasons) {
      Json& item = row["reasons"].emplace_back();
      item["reason"] = jsonKey(reason.key);
      item["text"] = reason.text;
      item["packets"] = reason.packets;
    }
  }
  return json;
}

}  // namespace

void inspectObject(const InspectOptions& options) {
  const recording::RecordingReader reader(options.file);
  noteUnit(reader);
  const int object = options.object.value_or(0);
  requireTracked(reader, object);
  ObjectFindings found(object);
  gather(reader, options.range, found);
  const analysis::ObjectHistory& history = found.history;
  if (history.packets() == 0) throw nothingInTime(reader, "packets", found.endSeconds);
  const double from = options.range.from.value_or(0);
  const double to = options.range.to.value_or(found.endSeconds);
  if (options.json) {
    Json json;
    json["file"] = reader.path();
    json["object"] = object;
    json["range"] = rangeJson(options.range);
    json["packets"] = history.packets();
    json["seen"] = history.seen();
    json["held"] = history.held();
    json["missing"] = runsJson(history.missing());
    json["funnel"] = funnelJson(found.funnel);
    json["cross_check"] = crossCheckJson(found.crossCheck);
    printJson(json);
  } else {
    std::cout << "object " << object << ", " << analysis::secondsText(from) << " to "
              << analysis::secondsText(to) << ": " << history.packets() << " packets, seen in "
              << history.seen();
    if (history.held() > 0)
      std::cout << ", of which " << history.held() << " at a place held from earlier";
    std::cout << "\n";
    printRuns(history.missing());
    printSection("Where the blobs of id " + std::to_string(object) + " ended",
                 funnelTable(found.funnel));
  }
  requireAgreement(found.crossCheck.problem(reader));
}

}  // namespace algtrack
