#include <alg_factory/api/Constants.h>
#include <alg_factory/service/ResultBlock.h>
#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_kit/estimate/Estimate.h>
#include <alg_kit/session/Session.h>
#include <alg_kit/trace/FateText.h>
#include <alg_kit/trace/PipelineTrace.h>
#include <bindings/python/src/Parts.h>
#include <bindings/python/src/Rows.h>
#include <pybind11/numpy.h>

namespace py = pybind11;

namespace bindings {
namespace {

template <typename Record>
void add(py::module_& module, const char* name) {
  const py::object plain = py::dtype::of<Record>();
  const py::object numpy = py::module_::import("numpy");
  module.attr(name) = numpy.attr("dtype")(py::make_tuple(numpy.attr("record"), plain));
}

}  // namespace

py::object recordType(const char* name) {
  return py::module_::import("alg_factory._core").attr(name);
}

void addRecords(py::module_& module) {
  using namespace algorithm;
  PYBIND11_NUMPY_DTYPE_EX(TrackedPoint, id, "id", x, "x", y, "y", z, "z", hostPosition,
                          "host_position", hostOrientation, "host_orientation", reserved,
                          "reserved", bearing, "bearing");
  PYBIND11_NUMPY_DTYPE_EX(ResultBlock, header, "stamp", records, "records");
  PYBIND11_NUMPY_DTYPE_EX(PoseAnswer, id, "id", raw, "raw", rate, "rate", filtered, "filtered",
                          rateCopy, "rate_copy");
  PYBIND11_NUMPY_DTYPE_EX(HeadingAnswer, orientation, "orientation", yaw, "yaw",
                          negatedCorrectedYaw, "negated_corrected_yaw", status, "status", value,
                          "value", score, "score");
  PYBIND11_NUMPY_DTYPE_EX(OrientationSample, orientation, "orientation", value, "value");
  PYBIND11_NUMPY_DTYPE_EX(InertialRecord, q, "q", p, "p", accelerometer, "accelerometer", gyroscope,
                          "gyroscope");
  PYBIND11_NUMPY_DTYPE_EX(StereoCalibration, lead, "lead", leftIntrinsics, "left_intrinsics",
                          leftDistortion, "left_distortion", rightIntrinsics, "right_intrinsics",
                          rightDistortion, "right_distortion", rotation, "rotation", translation,
                          "translation", fundamental, "fundamental", tail, "tail");
  add<TrackedPoint>(module, "TRACKED_POINT");
  add<ResultBlock>(module, "RESULT_BLOCK");
  add<PoseAnswer>(module, "POSE_ANSWER");
  add<HeadingAnswer>(module, "HEADING_ANSWER");
  add<OrientationSample>(module, "ORIENTATION_SAMPLE");
  add<InertialRecord>(module, "INERTIAL_RECORD");
  add<StereoCalibration>(module, "STEREO_CALIBRATION");

  PYBIND11_NUMPY_DTYPE_EX(CallRow, time, "time", call, "call", parent, "parent", kind, "kind", type,
                          "type", mode, "mode", length, "length", returned, "returned", payloadSize,
                          "payload_size", payloadBegin, "payload_begin", startNs, "start_ns",
                          durationNs, "duration_ns");
  PYBIND11_NUMPY_DTYPE_EX(PacketRow, time, "time", call, "call", packet, "packet", streamType,
                          "stream_type", stamp, "stamp", length, "length", blocks, "blocks");
  PYBIND11_NUMPY_DTYPE_EX(BlockRow, time, "time", call, "call", packet, "packet", stamp, "stamp",
                          records, "records");
  PYBIND11_NUMPY_DTYPE_EX(AnswerRow, time, "time", call, "call", packet, "packet", event, "event",
                          id, "id", raw, "raw", filtered, "filtered", rate, "rate");
  PYBIND11_NUMPY_DTYPE_EX(HeadingRow, time, "time", call, "call", packet, "packet", orientation,
                          "orientation", yaw, "yaw", negatedCorrectedYaw, "negated_corrected_yaw",
                          score, "score", status, "status");
  PYBIND11_NUMPY_DTYPE_EX(LogRow, time, "time", call, "call", packet, "packet", level, "level",
                          text, "text");
  PYBIND11_NUMPY_DTYPE_EX(TruthColumnRow, time, "time", frame, "frame", call, "call", object,
                          "object", marker, "marker", position, "position", inLeft, "in_left",
                          inRight, "in_right");
  PYBIND11_NUMPY_DTYPE_EX(BlobRow, time, "time", call, "call", packet, "packet", camera, "camera",
                          id, "id", x, "x", y, "y", diameter, "diameter", end, "end", value,
                          "value", limit, "limit", other, "other", blob, "blob");
  PYBIND11_NUMPY_DTYPE_EX(TrackColumnRow, time, "time", call, "call", object, "object", source,
                          "source", age, "age", position, "position", velocity, "velocity",
                          deviation, "deviation", covariance, "covariance");
  PYBIND11_NUMPY_DTYPE_EX(BodyMarkerRow, id, "id", position, "position", deviation, "deviation",
                          facing, "facing");
  PYBIND11_NUMPY_DTYPE_EX(BodyDistanceRow, first, "first", second, "second", distance, "distance",
                          deviation, "deviation", frames, "frames");
  PYBIND11_NUMPY_DTYPE_EX(BodyShiftRow, id, "id", seen, "seen", shift, "shift", deviation,
                          "deviation", moved, "moved");
  PYBIND11_NUMPY_DTYPE_EX(BodyPoseRow, time, "time_s", call, "call", x, "x", y, "y", z, "z", qx,
                          "qx", qy, "qy", qz, "qz", qw, "qw", sdX, "sd_x", sdY, "sd_y", sdZ, "sd_z",
                          sdRx, "sd_rx", sdRy, "sd_ry", sdRz, "sd_rz", markers, "markers", residual,
                          "residual_px", source, "source", age, "age_s", sdDirection,
                          "sd_direction");

  py::list kinds, fates, fateTexts, sources;
  for (std::uint32_t kind = 0; kind < session::kCallKinds; ++kind)
    kinds.append(session::nameOf(static_cast<session::CallKind>(kind)));
  for (int fate = 0; fate < trace::kBlobFates; ++fate) {
    fates.append(trace::keyOf(static_cast<trace::BlobFate>(fate)));
    fateTexts.append(trace::describe(static_cast<trace::BlobFate>(fate)));
  }
  for (const auto source : {estimate::Source::kNone, estimate::Source::kMeasured,
                            estimate::Source::kBridged, estimate::Source::kPredicted})
    sources.append(estimate::nameOf(source));
  module.attr("CALL_KINDS") = py::tuple(kinds);
  module.attr("BLOB_ENDS") = py::tuple(fates);
  module.attr("BLOB_END_TEXTS") = py::tuple(fateTexts);
  module.attr("TRACK_SOURCES") = py::tuple(sources);
  py::list objects;
  for (int type = 0; type < algorithm::kProductTypes; ++type)
    objects.append(algorithm::objectCount(type));
  module.attr("OBJECTS") = py::tuple(objects);
}

}  // namespace bindings
