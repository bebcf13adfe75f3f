// What the kit finds in a recording: blobs and their ends, the funnel, explanations, tracks.
#include <alg_kit/analysis/BlobFunnel.h>
#include <alg_kit/analysis/CrossCheck.h>
#include <alg_kit/analysis/Explanation.h>
#include <alg_kit/analysis/Tracks.h>
#include <alg_kit/trace/FateText.h>
#include <bindings/python/src/Arrays.h>
#include <bindings/python/src/Columns.h>
#include <bindings/python/src/Parts.h>
#include <bindings/python/src/RecordingFile.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <optional>
#include <tuple>

namespace py = pybind11;

namespace bindings {
namespace {

constexpr std::int64_t kTickEvery = 4096;  // calls

py::object textOrNone(const std::optional<std::string>& text) {
  return text ? py::object(py::str(*text)) : py::none();
}

void addBlobs(const trace::PacketTrace& packet, const analysis::Moment& moment,
              std::vector<BlobRow>& rows) {
  std::int32_t place = 0;
  for (const trace::TracedBlob& blob : packet.blobs) {
    BlobRow& row = rows.emplace_back();
    row.time = moment.seconds;
    row.call = moment.call;
    row.packet = moment.packet;
    row.camera = blob.camera;
    row.id = static_cast<std::int32_t>(blob.raw.id);
    row.x = blob.x;
    row.y = blob.y;
    row.diameter = blob.diameter;
    row.end = static_cast<std::int32_t>(blob.fate);
    row.value = blob.value;
    row.limit = blob.limit;
    row.other = blob.other;
    row.blob = place++;
  }
}

/// Runs the recording through the stages. `take` gets every packet that was decoded.
/// @return what differs from the recorded blocks
template <typename Take>
std::optional<std::string> trace(const recording::RecordingReader& reader, const Take& take) {
  trace::PipelineTrace stages;
  analysis::MomentCounter moments;
  analysis::CrossCheck check;
  auto entries = reader.entries();
  for (session::Entry entry; entries.next(entry);) {
    const trace::PacketTrace* const packet = stages.feed(entry.call);
    const auto moment = moments.next(entry.call);
    check.add(entry, stages.block(), moment);
    if (packet != nullptr && moment) take(*packet, *moment);
    if (entry.call.index % kTickEvery == 0) checkInterrupt();
  }
  return check.problem(reader);
}

/// (rows, what differs from the recorded blocks)
py::tuple blobsOf(const RecordingFile& file) {
  std::vector<BlobRow> rows;
  std::optional<std::string> problem;
  {
    const py::gil_scoped_release free;
    const std::lock_guard<std::mutex> lock(file.mutex());
    problem =
        trace(file.reader(), [&](const trace::PacketTrace& packet, const analysis::Moment& moment) {
          addBlobs(packet, moment, rows);
        });
  }
  return py::make_tuple(toArray(std::move(rows)), textOrNone(problem));
}

/// (records, ends by fate, closes, what differs); counts are (left, right).
py::tuple funnelOf(const RecordingFile& file, const std::optional<int>& object,
                   const std::optional<double>& from, const std::optional<double>& to) {
  analysis::BlobFunnel funnel(object);
  const analysis::TimeRange range{from, to};
  std::optional<std::string> problem;
  {
    const py::gil_scoped_release free;
    const std::lock_guard<std::mutex> lock(file.mutex());
    problem =
        trace(file.reader(), [&](const trace::PacketTrace& packet, const analysis::Moment& moment) {
          if (range.contains(moment.seconds)) funnel.add(packet);
        });
  }
  py::list ends;
  for (int i = 0; i < trace::kBlobFates; ++i) {
    const auto fate = static_cast<trace::BlobFate>(i);
    ends.append(py::make_tuple(funnel.ended(fate, 0), funnel.ended(fate, 1)));
  }
  return py::make_tuple(py::make_tuple(funnel.records(0), funnel.records(1)), ends, funnel.closes(),
                        textOrNone(problem));
}

py::dict explain(const RecordingFile& file, const std::optional<double>& time,
                 const std::optional<std::int64_t>& call, const std::optional<std::int64_t>& packet,
                 const std::optional<int>& object) {
  analysis::MomentQuery query;
  query.time = time;
  query.call = call;
  query.packet = packet;
  analysis::Explanation found;
  {
    const py::gil_scoped_release free;
    const std::lock_guard<std::mutex> lock(file.mutex());
    found = analysis::explainPacket(file.reader(), query, object, [](std::int64_t at) {
      if (at % kTickEvery == 0) checkInterrupt();
    });
  }
  py::list objects, reasons;
  for (const analysis::ObjectExplanation& one : found.objects) {
    py::dict row;
    row["object"] = one.object;
    row["delivered"] = one.end.delivered;
    row["held"] = one.end.held;
    row["reason"] = one.end.key;
    row["text"] = one.text;
    objects.append(row);
  }
  for (const trace::TracedBlob& blob : found.packet.blobs)
    reasons.append(trace::reasonOf(found.packet, blob));
  std::vector<BlobRow> blobs;
  addBlobs(found.packet, found.moment, blobs);
  py::dict result;
  result["packet"] = found.moment.packet;
  result["call"] = found.moment.call;
  result["time"] = found.moment.seconds;
  result["moment"] = analysis::textOf(found.moment);
  const char* const message = hid::messageOf(found.packet.status);
  result["decoder_report"] = message == nullptr ? py::object(py::none()) : py::str(message);
  result["objects"] = objects;
  result["blobs"] = toArray(std::move(blobs));
  result["reasons"] = reasons;
  result["problem"] = textOrNone(found.disagreement);
  return result;
}

TrackColumnRow rowOf(const analysis::TrackRow& track, std::int64_t firstNs) {
  const estimate::Estimate& estimate = track.estimate;
  TrackColumnRow row;
  row.time = (static_cast<double>(track.timeNs) - static_cast<double>(firstNs)) / 1e9;
  row.call = track.call;
  row.object = track.object;
  row.source = static_cast<std::int32_t>(estimate.source);
  row.age = estimate.age;
  std::copy_n(estimate.position, 3, row.position);
  std::copy_n(estimate.velocity, 3, row.velocity);
  for (int i = 0; i < 3; ++i) row.deviation[i] = std::sqrt(estimate.covariance[i][i]);
  std::copy_n(&estimate.covariance[0][0], 81, &row.covariance[0][0]);
  return row;
}

/// (rows by time and object, the blob noise that was assumed)
py::tuple tracksOf(const RecordingFile& file, bool smooth, double ahead, double noise) {
  analysis::TrackOptions options;
  options.smooth = smooth;
  options.ahead = ahead;
  options.noise = noise;
  std::vector<TrackColumnRow> rows;
  double assumed = 0;
  {
    const py::gil_scoped_release free;
    const std::lock_guard<std::mutex> lock(file.mutex());
    session::Entry first;
    const std::int64_t firstNs =
        file.reader().entries().next(first) ? first.call.startNs : std::int64_t{0};
    assumed = analysis::estimateTracks(file.reader(), options, [&](const analysis::TrackRow& row) {
      rows.push_back(rowOf(row, firstNs));
      if (static_cast<std::int64_t>(rows.size()) % kTickEvery == 0) checkInterrupt();
    });
    std::stable_sort(rows.begin(), rows.end(),
                     [](const TrackColumnRow& a, const TrackColumnRow& b) {
                       return std::tie(a.time, a.object) < std::tie(b.time, b.object);
                     });
  }
  return py::make_tuple(toArray(std::move(rows)), assumed);
}

std::string whyNoTrack(const RecordingFile& file, const std::optional<int>& object) {
  const py::gil_scoped_release free;
  const std::lock_guard<std::mutex> lock(file.mutex());
  return analysis::whyNoTrack(file.reader(), object);
}

}  // namespace

void addAnalysis(py::module_& module) {
  module.def("blobs", blobsOf);
  module.def("funnel", funnelOf);
  module.def("explain", explain);
  module.def("tracks", tracksOf);
  module.def("why_no_track", whyNoTrack);
}

}  // namespace bindings
