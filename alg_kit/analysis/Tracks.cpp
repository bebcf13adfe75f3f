#include <alg_kit/analysis/EstimatedPlaces.h>
#include <alg_kit/analysis/Moment.h>
#include <alg_kit/analysis/Tracks.h>

#include <alg_factory/api/Constants.h>
#include <alg_kit/estimate/PacketBlobs.h>
#include <alg_kit/estimate/Smoother.h>
#include <alg_kit/recording/FrameRate.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

namespace analysis {
namespace {

using session::Call;
using session::CallKind;
using session::Entry;

constexpr double kNanosecond = 1e-9;

/// What one Init began.
class Stretch {
 public:
  Stretch(const Call& init, const TrackOptions& options, double frameRate, const TrackTaker& take)
      : options_(options), take_(take) {
    algorithm::StereoCalibration calibration;
    std::memcpy(&calibration, init.payload.data(), sizeof calibration);
    estimate::EstimatorOptions with;
    with.noise = options.noise;
    with.frameRate = frameRate;
    if (options.smooth)
      smoother_ = std::make_unique<estimate::Smoother>(init.type, calibration, with);
    else
      estimator_ = std::make_unique<estimate::Estimator>(init.type, calibration, with);
  }

  void add(const Call& call, std::int64_t packet) {
    const Frame frame = {packet, call.index, call.startNs};
    const auto* const bytes = call.payload.data();
    const int length = static_cast<int>(call.payload.size());
    const double arrival = static_cast<double>(call.startNs) * kNanosecond;
    if (smoother_) {
      if (smoother_->add(call.type, bytes, length, arrival)) frames_.push_back(frame);
      return;
    }
    estimator_->feed(call.type, bytes, length, arrival);
    for (int object = 0; object < estimator_->objectCount(); ++object)
      give(frame, object, estimator_->ahead(object, options_.ahead));
  }

  /// @return the noise that was assumed
  double end() {
    if (!smoother_) return estimator_->noise();
    smoother_->run([this](int object, std::size_t frame, const estimate::Estimate& estimate) {
      give(frames_[frame], object, estimate);
    });
    return smoother_->noise();
  }

 private:
  struct Frame {
    std::int64_t packet = 0, call = 0, timeNs = 0;
  };

  void give(const Frame& frame, int object, const estimate::Estimate& estimate) const {
    if (estimate.source == estimate::Source::kNone) return;
    take_({frame.packet, frame.call, frame.timeNs + std::llround(options_.ahead / kNanosecond),
           object, estimate});
  }

  const TrackOptions& options_;
  const TrackTaker& take_;
  std::unique_ptr<estimate::Estimator> estimator_;
  std::unique_ptr<estimate::Smoother> smoother_;
  std::vector<Frame> frames_;
};

}  // namespace

double estimateTracks(const recording::RecordingReader& reader, const TrackOptions& options,
                      const TrackTaker& take) {
  const double frameRate = recording::frameRateOf(reader);
  std::optional<Stretch> stretch;
  MomentCounter moments;
  bool any = false;
  double noise = options.noise;
  auto entries = reader.entries();
  Entry entry;
  while (entries.next(entry)) {
    const Call& call = entry.call;
    const auto moment = moments.next(call);
    if (call.kind == CallKind::kInit) {
      if (stretch) noise = stretch->end();
      stretch.reset();
      if (!algorithm::isProductType(call.type) ||
          call.payload.size() != sizeof(algorithm::StereoCalibration))
        continue;
      try {
        stretch.emplace(call, options, frameRate, take);
      } catch (const std::invalid_argument& error) {
        throw std::runtime_error(reader.path() + ": call " + std::to_string(call.index) +
                                 " (Init): " + error.what());
      }
    } else if (moment && stretch) {
      any = true;
      stretch->add(call, moment->packet);
    }
  }
  if (stretch) noise = stretch->end();
  if (!any)
    throw std::runtime_error(reader.path() +
                             ": expected an initialised library and device packets (InputStream "
                             "of stream type 0 or 2), found none");
  return noise;
}

std::string whyNoTrack(const recording::RecordingReader& reader, std::optional<int> object) {
  std::int64_t packets = 0, whole = 0, seen = 0, seenByBoth = 0;
  MomentCounter moments;
  auto entries = reader.entries();
  estimate::PacketBlobs blobs;
  for (Entry entry; entries.next(entry);) {
    if (!moments.next(entry.call)) continue;
    ++packets;
    const auto& bytes = entry.call.payload;
    const std::size_t stamp =
        entry.call.type == algorithm::kStampedPacket ? algorithm::kStampSize : 0;
    if (bytes.size() < stamp || !estimate::readPacket(bytes.data() + stamp, bytes.size() - stamp,
                                                      algorithm::kMaxObjects, blobs))
      continue;
    ++whole;
    std::array<bool, algorithm::kMaxObjects> cameras[2] = {};
    for (std::size_t i = 0; i < blobs.count; ++i)
      cameras[blobs.blobs[i].camera][static_cast<std::size_t>(blobs.blobs[i].id)] = true;
    bool any = false, both = false;
    for (std::size_t id = 0; id < algorithm::kMaxObjects; ++id) {
      if (object && static_cast<int>(id) != *object) continue;
      any = any || cameras[0][id] || cameras[1][id];
      both = both || (cameras[0][id] && cameras[1][id]);
    }
    seen += any;
    seenByBoth += both;
  }
  const std::string of = object ? " of object " + std::to_string(*object) : "";
  const std::string text =
      reader.path() + ": no track" + of + ": of " + std::to_string(packets) + " packets ";
  if (whole == 0) return text + "none has a start word and a right check byte";
  if (seen == 0) return text + "none has a blob" + of;
  const std::string pairs = " blobs" + (object ? of : " of one object") + " from both cameras";
  if (seenByBoth == 0) return text + "none has" + pairs;
  return text + std::to_string(seenByBoth) + " have" + pairs + ", which make none";
}

}  // namespace analysis
