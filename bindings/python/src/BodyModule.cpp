// Markers that belong together: shape, poses, the tip of a pointer.
#include <alg_kit/bodies/BodyAbsence.h>
#include <alg_kit/bodies/BodyCheck.h>
#include <alg_kit/bodies/BodyFile.h>
#include <alg_kit/bodies/BodyTracks.h>
#include <alg_kit/bodies/Pivot.h>
#include <bindings/python/src/Arrays.h>
#include <bindings/python/src/Parts.h>
#include <bindings/python/src/Reading.h>
#include <bindings/python/src/Rows.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <tuple>

namespace py = pybind11;

namespace bindings {
namespace {

using bodies::Body;
using Reader = recording::RecordingReader;

constexpr std::size_t kTickEvery = 4096;  // poses

std::array<double, 3> listOf(const Eigen::Vector3d& v) {
  return {v.x(), v.y(), v.z()};
}

std::array<std::array<double, 3>, 3> rowsOf(const Eigen::Matrix3d& m) {
  return {listOf(m.row(0)), listOf(m.row(1)), listOf(m.row(2))};
}

double noiseFor(const Reader& reader, double noise) {
  return noise > 0 ? noise : bodies::blobNoiseOf(reader);
}

/// What the kit refuses of a recording, with the recording's name.
template <typename Find>
auto findIn(const Reader& reader, const Find& find) {
  try {
    return find();
  } catch (const recording::RecordingError&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw recording::RecordingError(reader.path(), error.what());
  }
}

py::array markersOf(const Body& body) {
  std::vector<BodyMarkerRow> rows;
  for (const bodies::BodyMarker& marker : body.markers) {
    BodyMarkerRow& row = rows.emplace_back();
    row.id = body.blobIdOf(marker);
    Eigen::Map<Eigen::Vector3d>(row.position) = marker.position;
    Eigen::Map<Eigen::Vector3d>(row.deviation) = marker.deviation;
    Eigen::Map<Eigen::Vector3d>(row.facing) = marker.facing;
  }
  return toArray(std::move(rows));
}

py::array distancesOf(const bodies::LearnedBody& learned) {
  std::vector<BodyDistanceRow> rows;
  for (const bodies::MarkerDistance& d : learned.distances)
    rows.push_back({d.first, d.second, d.distance, d.deviation, d.frames});
  return toArray(std::move(rows));
}

py::dict learn(const RecordingFile& file, const std::vector<int>& ids, const std::string& name,
               double noise) {
  bodies::requireName(name, "name");
  double assumed = 0;
  const bodies::LearnedBody learned = reading(file, [&](const Reader& reader) {
    assumed = noiseFor(reader, noise);
    const auto frames = bodies::pointsOf(reader, ids, assumed);
    return findIn(reader, [&] { return bodies::learn(frames, ids, name); });
  });
  py::dict result;
  result["body"] = learned.body;
  result["distances"] = distancesOf(learned);
  result["frames"] = learned.frames;
  result["noise"] = assumed;
  result["misfit"] = learned.misfit;
  result["loose"] = learned.loose;
  result["not_linked"] = learned.notLinked;
  result["never_together"] = learned.neverTogether;
  return result;
}

BodyPoseRow rowOf(const bodies::BodyRow& from) {
  const bodies::BodyPose& pose = from.pose.pose;
  const Eigen::Vector3d& position = pose.motion.position;
  const Eigen::Quaterniond& orientation = pose.motion.orientation;
  const std::array<double, 6> deviations = bodies::deviationsOf(pose);
  BodyPoseRow row;
  row.time = from.time;
  row.call = from.call;
  row.x = position.x();
  row.y = position.y();
  row.z = position.z();
  row.qx = orientation.x();
  row.qy = orientation.y();
  row.qz = orientation.z();
  row.qw = orientation.w();
  std::tie(row.sdX, row.sdY, row.sdZ, row.sdRx, row.sdRy, row.sdRz) = std::tuple_cat(deviations);
  row.markers = pose.markers;
  row.source = static_cast<std::int32_t>(from.pose.source);
  row.sdDirection = pose.directionDeviation * bodies::kDegrees;
  row.residual = pose.residual;
  row.age = from.pose.age;
  return row;
}

py::array track(const RecordingFile& file, const Body& body, const std::string& manner,
                double ahead, double noise) {
  bodies::BodyTrackOptions options;
  options.manner = manner == "smooth"   ? bodies::Manner::kSmoothed
                   : manner == "single" ? bodies::Manner::kSingle
                                        : bodies::Manner::kLive;
  options.ahead = ahead;
  options.noise = noise;
  return toArray(reading(file, [&](const Reader& reader) {
    std::vector<BodyPoseRow> rows;
    bodies::trackBodies(reader, {body}, options, [&](const bodies::BodyRow& row) {
      rows.push_back(rowOf(row));
      if (rows.size() % kTickEvery == 0) checkInterrupt();
    });
    return rows;
  }));
}

std::string whyNoPose(const RecordingFile& file, const Body& body, double noise) {
  return reading(file, [&](const Reader& reader) {
    return reader.path() + ": " + bodies::whyNoPose(reader, body, noiseFor(reader, noise));
  });
}

py::dict pivot(const RecordingFile& file, const Body& body, double noise) {
  const bodies::PivotFit fit = reading(file, [&](const Reader& reader) {
    const auto poses = bodies::posesOf(reader, body, noiseFor(reader, noise));
    return findIn(reader, [&] { return bodies::pivotOf(poses); });
  });
  py::dict result;
  result["tip"] = listOf(fit.tip);
  result["covariance"] = rowsOf(fit.covariance);
  result["spot"] = listOf({fit.spot.x(), -fit.spot.y(), -fit.spot.z()});
  result["residual"] = fit.residual;
  result["turned"] = fit.turned;
  result["poses"] = fit.poses;
  return result;
}

py::array shiftsOf(const bodies::ShapeCheck& check) {
  constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
  std::vector<BodyShiftRow> rows;
  for (const bodies::MarkerShift& marker : check.markers)
    rows.push_back({marker.id, marker.seen, marker.seen ? marker.shift : kUnknown,
                    marker.seen ? marker.deviation : kUnknown, marker.moved});
  return toArray(std::move(rows));
}

/// (same, known, shifts)
py::tuple check(const RecordingFile& file, const Body& body, double tolerance, double noise) {
  std::vector<int> ids;
  for (const bodies::BodyMarker& marker : body.markers) ids.push_back(marker.id);
  const bodies::ShapeCheck found = reading(file, [&](const Reader& reader) {
    const auto frames = bodies::pointsOf(reader, ids, noiseFor(reader, noise));
    return findIn(reader, [&] { return bodies::checkShape(body, frames, tolerance); });
  });
  return py::make_tuple(found.same, found.known, shiftsOf(found));
}

}  // namespace

void addBodies(py::module_& module) {
  py::class_<Body>(module, "BodyShape")
      .def_static("from_text",
                  [](const std::string& content, const std::string& path) {
                    return bodies::bodyFromText(content, path, bodies::Pairs::kTaken);
                  })
      .def_static(
          "read",
          [](const std::string& path) { return bodies::readBody(path, bodies::Pairs::kTaken); })
      .def("text", bodies::bodyText)
      .def("markers", markersOf)
      .def_readonly("name", &Body::name)
      .def_property_readonly("is_pair", &Body::isPair)
      .def_property_readonly("tip", [](const Body& body) {
        return body.pivot ? std::optional(listOf(*body.pivot)) : std::nullopt;
      });
  module.def("body_learn", learn);
  module.def("body_track", track);
  module.def("why_no_pose", whyNoPose);
  module.def("body_pivot", pivot);
  module.def("body_check", check);
}

}  // namespace bindings
