#include <alg_kit/view/Downloads.h>

#include <alg_kit/recording/RecordingWriter.h>
#include <alg_kit/recording/SetUpCalls.h>
#include <alg_kit/recording/UnitCursor.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <stdexcept>

namespace view {
namespace {

namespace fs = std::filesystem;

void append(std::string& line, double value) {
  line += ',';
  if (!std::isfinite(value)) return;
  char text[64];
  const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6).ptr;
  line.append(text, end);
}

/// A folder among the temporary files, gone with the object.
class ScratchFolder {
 public:
  ScratchFolder() : path_((fs::temp_directory_path() / "algtrack-view-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr)
      throw std::runtime_error(path_ + ": expected room for temporary files, found none");
  }
  ~ScratchFolder() {
    std::error_code error;
    fs::remove_all(path_, error);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  std::string file(const char* name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace

std::string csvOf(const FrameLog& log, double from, double to) {
  std::string table =
      "seconds,packet,call,object,seen,x_mm,y_mm,z_mm,filtered_x_mm,filtered_y_mm,filtered_z_mm,"
      "true_x_mm,true_y_mm,true_z_mm,epipolar_px,ray_gap_mm,reason\n";
  const std::int64_t size = log.size();
  if (size == 0) return table;
  std::int64_t first = log.at(from);
  if (log.secondsOf(first) < from) ++first;
  const std::int64_t last = log.at(to);
  if (last - first >= kMostCsvFrames)
    throw std::runtime_error("expected at most " + std::to_string(kMostCsvFrames) +
                             " packets in a table, found " + std::to_string(last - first + 1));
  for (std::int64_t i = first; i <= last; ++i) {
    const Frame frame = log.frame(i);
    for (std::size_t id = 0; id < frame.objects.size(); ++id) {
      const FrameObject& object = frame.objects[id];
      char time[64];
      table.append(
          time,
          std::to_chars(time, time + sizeof time, frame.seconds, std::chars_format::fixed, 6).ptr);
      table += "," + std::to_string(frame.packet) + "," + std::to_string(frame.call) + "," +
               std::to_string(id) + (object.seen ? ",1" : ",0");
      for (const analysis::Place* const place : {&object.raw, &object.filtered, &object.truth})
        for (std::size_t axis = 0; axis < analysis::kAxes; ++axis)
          append(table, analysis::axisOf(*place, axis));
      append(table, object.epipolar);
      append(table, object.rayGap);
      table += "," + object.key + "\n";
    }
  }
  return table;
}

std::string recordingOf(const std::string& path, double from, double to) {
  const recording::RecordingReader reader(path);
  const ScratchFolder folder;
  const std::string name = folder.file("part.algrec");
  std::ofstream(name).close();
  recording::createTables(name, {});
  recording::RecordingWriter writer(name);
  recording::UnitCursor units(reader.entries());
  recording::SetUpCalls setUp;
  session::Unit unit;
  std::optional<std::int64_t> firstNs;
  bool begun = false;
  std::int64_t saved = 0;
  writer.begin();
  while (units.next(unit)) {
    const session::Call& call = unit[0].call;
    if (!firstNs) firstNs = call.startNs;
    const double at = (static_cast<double>(call.startNs) - static_cast<double>(*firstNs)) / 1e9;
    if (at > to) break;
    if (at < from) {
      setUp.remember(unit);
      continue;
    }
    if (!begun)
      for (const session::Entry& entry : setUp.before(call.index, call.startNs))
        writer.write(entry);
    begun = true;
    saved += static_cast<std::int64_t>(unit.size());
    if (saved > kMostSavedCalls)
      throw std::runtime_error("expected at most " + std::to_string(kMostSavedCalls) +
                               " calls in a part of a recording, found more");
    writer.write(unit);
    for (const session::Entry& entry : unit)
      if (entry.call.kind == session::CallKind::kInputStream)
        for (const session::TruthRow& row : reader.truthOf(entry.call.index)) writer.write(row);
  }
  if (!begun) throw std::runtime_error("expected calls in the range, found none");
  for (const auto& [key, value] : reader.metadata().values)
    if (key != "complete" && key != "calls" && key != "last_call" && key != "truth_rows" &&
        key != "dropped_calls" && key != "continued_in" && key != "continues_from")
      writer.setFact(key, value);
  writer.commit(0);
  writer.finish(0);
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace view
