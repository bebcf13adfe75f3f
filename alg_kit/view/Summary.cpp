#include <alg_kit/view/Summary.h>

#include <algorithm>
#include <cmath>

namespace view {

const char* keyOf(ObjectRow row) {
  constexpr const char* kKeys[kObjectRows] = {"x",
                                              "y",
                                              "z",
                                              "filtered_x",
                                              "filtered_y",
                                              "filtered_z",
                                              "estimated_x",
                                              "estimated_y",
                                              "estimated_z",
                                              "true_x",
                                              "true_y",
                                              "true_z",
                                              "raw_error",
                                              "filtered_error",
                                              "estimated_error",
                                              "estimated_sd",
                                              "speed",
                                              "epipolar",
                                              "ray_gap"};
  return kKeys[static_cast<std::size_t>(row)];
}

const char* keyOf(FrameRow row) {
  constexpr const char* kKeys[kFrameRows] = {"blobs_left", "blobs_right", "duration_us",
                                             "interval_ms", "queries"};
  return kKeys[static_cast<std::size_t>(row)];
}

Summary::Summary() {
  low.fill(kNone);
  high.fill(kNone);
}

Summary::Summary(const Frame& frame, double before) : Summary() {
  from = to = frame.seconds;
  frames = 1;
  for (std::size_t i = 0; i < kEvents; ++i) events[i] = (frame.events >> i) & 1u;
  const auto set = [this](std::size_t row, float value) { low[row] = high[row] = value; };
  const auto place = [&](std::size_t row, const analysis::Place& at) {
    set(row, at.x);
    set(row + 1, at.y);
    set(row + 2, at.z);
  };
  for (std::size_t i = 0; i < std::min(kObjects, frame.objects.size()); ++i) {
    const FrameObject& object = frame.objects[i];
    seen[i] = object.seen ? 1 : 0;
    absent[i] = object.seen ? 0 : 1;
    place(rowOf(i, ObjectRow::kX), object.raw);
    place(rowOf(i, ObjectRow::kFilteredX), object.filtered);
    place(rowOf(i, ObjectRow::kEstimatedX), object.estimated);
    place(rowOf(i, ObjectRow::kTrueX), object.truth);
    set(rowOf(i, ObjectRow::kRawError),
        static_cast<float>(analysis::distance(object.raw, object.truth)));
    set(rowOf(i, ObjectRow::kFilteredError), object.filteredError);
    set(rowOf(i, ObjectRow::kEstimatedError),
        static_cast<float>(analysis::distance(object.estimated, object.truth)));
    set(rowOf(i, ObjectRow::kEstimatedDeviation), object.estimatedDeviation);
    set(rowOf(i, ObjectRow::kSpeed), static_cast<float>(analysis::distance(object.velocity, {})));
    set(rowOf(i, ObjectRow::kEpipolar), object.epipolar);
    set(rowOf(i, ObjectRow::kRayGap), object.rayGap);
  }
  const auto ofCamera = [&](int camera) {
    return static_cast<float>(
        std::count_if(frame.blobs.begin(), frame.blobs.end(),
                      [camera](const FrameBlob& blob) { return blob.camera == camera; }));
  };
  set(rowOf(FrameRow::kBlobsLeft), ofCamera(0));
  set(rowOf(FrameRow::kBlobsRight), ofCamera(1));
  set(rowOf(FrameRow::kDuration), frame.durationUs);
  if (before >= 0)
    set(rowOf(FrameRow::kInterval), static_cast<float>(1e3 * (frame.seconds - before)));
  set(rowOf(FrameRow::kQueries), static_cast<float>(frame.queries));
}

void Summary::add(const Summary& more) {
  if (frames == 0) from = more.from;
  to = more.to;
  frames += more.frames;
  for (std::size_t i = 0; i < kEvents; ++i) events[i] += more.events[i];
  for (std::size_t i = 0; i < kObjects; ++i) {
    seen[i] += more.seen[i];
    absent[i] += more.absent[i];
  }
  for (std::size_t i = 0; i < kRows; ++i) {
    // The other one where one is no number.
    low[i] = std::fmin(low[i], more.low[i]);
    high[i] = std::fmax(high[i], more.high[i]);
  }
}

}  // namespace view
