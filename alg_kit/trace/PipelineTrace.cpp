#include <alg_factory/api/DataSink.h>
#include <alg_factory/api/LogSink.h>
#include <alg_factory/hid/StageObserver.h>
#include <alg_factory/stereo3d/Triangulation.h>
#include <alg_kit/trace/PipelineTrace.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace trace {
namespace {

using algorithm::Blob2DPoint;

/// Shortest distance between the rays of a pair: along the common perpendicular.
double rayGap(const algorithm::StereoRays& rays, const Blob2DPoint& left,
              const Blob2DPoint& right) {
  const Eigen::Vector3d dL = rays.leftRayInRight * Eigen::Vector3d(left.x, left.y, 1);
  const Eigen::Vector3d dR = rays.rightRay * Eigen::Vector3d(right.x, right.y, 1);
  const Eigen::Vector3d perpendicular = dL.cross(dR).normalized();
  return std::fabs(perpendicular.dot(rays.leftCentreInRight));
}

}  // namespace

struct PipelineTrace::Sinks : algorithm::LogSink, algorithm::DataSink {
  bool Log(int, const char*) override { return true; }
  bool Deliver(const void* buffer, int offset, int) override {
    block.emplace();
    std::memcpy(&*block, static_cast<const unsigned char*>(buffer) + offset, sizeof *block);
    return true;
  }
  std::optional<algorithm::ResultBlock> block;
};

/// Writes what the steps of one packet tell into its trace.
class PipelineTrace::Listener : public algorithm::NoObserver {
 public:
  explicit Listener(PipelineTrace& trace)
      : trace_(trace), packet_(trace.packet_), decoded_(trace.decoded_), entered_(trace.entered_) {}

  void decoded(const std::vector<hid::RawBlob>& left, const std::vector<hid::RawBlob>& right) {
    trace_.dissectPacket();
    for (std::size_t i = 0; i < packet_.blobs.size(); ++i) {
      decoded_[packet_.blobs[i].camera].push_back(static_cast<int>(i));
    }
    if (decoded_[0].size() != left.size() || decoded_[1].size() != right.size()) {
      throw std::logic_error("the dissection and the decoder disagree about a packet's records");
    }
  }

  void blobDropped(int camera, std::size_t blob, BlobFate fate) {
    finish(decoded_[camera][blob], fate, 0, 0);
  }
  void blobMerged(int camera, std::size_t blob, const Blob2DPoint& point, std::size_t into,
                  double value, double limit) {
    measured(decoded_[camera][blob], point).other = decoded_[camera][into];
    finish(decoded_[camera][blob], BlobFate::kMerged, value, limit);
  }
  void blobKept(int camera, std::size_t blob, const Blob2DPoint& point) {
    measured(decoded_[camera][blob], point);
    entered_[camera].push_back(decoded_[camera][blob]);
  }

  static constexpr bool kWantsNearest = true;
  void unmatched(int camera, std::size_t blob, BlobFate fate, double value, double limit) {
    finish(entered_[camera][blob], fate, value, limit);
  }
  void notMutual(int camera, std::size_t blob, std::size_t nearest, std::size_t nearestsNearest) {
    TracedBlob& traced = at(entered_[camera][blob]);
    traced.nearest = entered_[1 - camera][nearest];
    traced.nearestsNearest = entered_[camera][nearestsNearest];
    finish(entered_[camera][blob], BlobFate::kNotMutual, 0, 0);
  }
  void refused(std::size_t left, std::size_t right, double value, double limit) {
    join(entered_[0][left], entered_[1][right]);
    finish(entered_[0][left], BlobFate::kEpipolar, value, limit);
    finish(entered_[1][right], BlobFate::kEpipolar, value, limit);
  }
  void paired(std::size_t left, std::size_t right, double epipolarDistance) {
    TracedPoint point;
    point.left = entered_[0][left];
    point.right = entered_[1][right];
    point.id = at(point.left).raw.id;
    point.epipolarDistance = epipolarDistance;
    join(point.left, point.right);
    at(point.left).point = at(point.right).point = static_cast<int>(packet_.points.size());
    packet_.points.push_back(point);
  }

  void triangulated(std::size_t point, double x, double y, double z) {
    const double position[3] = {x, y, z};
    std::copy_n(position, 3, packet_.points[point].position);
  }
  void pointDropped(std::size_t point, BlobFate fate, double value, double limit) {
    finish(packet_.points[point], fate, value, limit);
  }
  void published(std::size_t point, const algorithm::StereoPoint& p) {
    const double position[3] = {p.x, p.y, p.z};
    std::copy_n(position, 3, packet_.points[point].smoothed);
    finish(packet_.points[point], BlobFate::kDelivered, 0, 0);
  }

  void held(std::size_t object, BlobFate fate, double value, double limit) {
    for (TracedPoint& point : packet_.points) {
      if (point.fate == BlobFate::kDelivered && point.id == static_cast<int>(object)) {
        finish(point, fate, value, limit);
      }
    }
  }

 private:
  TracedBlob& at(int blob) { return packet_.blobs[static_cast<std::size_t>(blob)]; }

  TracedBlob& measured(int blob, const Blob2DPoint& point) {
    at(blob).x = point.x;
    at(blob).y = point.y;
    at(blob).diameter = point.diameter;
    return at(blob);
  }
  void join(int left, int right) {
    at(left).other = right;
    at(right).other = left;
  }
  void finish(int blob, BlobFate fate, double value, double limit) {
    at(blob).fate = fate;
    at(blob).value = value;
    at(blob).limit = limit;
  }
  void finish(TracedPoint& point, BlobFate fate, double value, double limit) {
    point.fate = fate;
    point.value = value;
    point.limit = limit;
    finish(point.left, fate, value, limit);
    finish(point.right, fate, value, limit);
  }

  PipelineTrace& trace_;
  PacketTrace& packet_;
  std::vector<int> (&decoded_)[2], (&entered_)[2];
};

PipelineTrace::PipelineTrace() : sinks_(std::make_unique<Sinks>()) {
  service_.setLogCallback(sinks_.get());
  service_.setDataCallback(sinks_.get());
}

PipelineTrace::~PipelineTrace() = default;

const std::optional<algorithm::ResultBlock>& PipelineTrace::block() const {
  return sinks_->block;
}

const PacketTrace* PipelineTrace::feed(const session::Call& call) {
  static const unsigned char nothing = 0;
  sinks_->block.reset();
  const unsigned char* const payload = call.payload.empty() ? &nothing : call.payload.data();
  // The library reads as many bytes as the call says: it gets none where they are not there.
  const bool whole = call.payload.size() >= session::payloadSize(call, 0);
  const unsigned char* const given = call.pointerGiven && whole ? payload : nullptr;
  if (call.kind == session::CallKind::kInit) service_.initialize(call.type, given, 0);
  // Queries and filter modes touch poses only, never points.
  if (call.kind != session::CallKind::kInputStream) return nullptr;

  beginPacket(call);
  Listener listener(*this);
  service_.inputStream(call.type, given, 0, call.length, listener);
  if (!sinks_->block) return nullptr;
  measureRays();
  return &packet_;
}

void PipelineTrace::beginPacket(const session::Call& call) {
  packet_.productType = service_.steady().productType();
  packet_.blobIdCount = service_.protocol().blobIdCount();
  packet_.streamType = call.type;
  packet_.frame = {};
  packet_.length = std::min(call.length, hid::kFrameSize);
  packet_.status = hid::DecodeStatus::kNone;
  packet_.pieces.clear();
  packet_.blobs.clear();
  packet_.points.clear();
  packet_.hadPreviousPoints = !service_.stereo().previousPoints().empty();
  for (const int camera : {0, 1}) {
    decoded_[camera].clear();
    entered_[camera].clear();
    rawBlobs_[camera].clear();
  }
}

void PipelineTrace::dissectPacket() {
  packet_.frame = service_.protocol().frame();
  packet_.pieces =
      dissect(packet_.frame, packet_.length, packet_.blobIdCount, std::move(packet_.pieces));
  packet_.status =
      hid::decode(packet_.frame, packet_.length, packet_.blobIdCount, rawBlobs_[0], rawBlobs_[1]);
  for (const PacketPiece& piece : packet_.pieces) {
    if (piece.kind != PacketPiece::Kind::kRecord) continue;
    TracedBlob blob;
    blob.camera = piece.step.camera;
    blob.offset = piece.offset;
    blob.raw = piece.step.blob;
    packet_.blobs.push_back(blob);
  }
}

void PipelineTrace::measureRays() {
  const algorithm::Blob3D& stage = service_.stereo();
  const algorithm::StereoRays rays = algorithm::raysFrom(stage.calibration());
  for (std::size_t i = 0; i < packet_.points.size(); ++i) {
    const algorithm::BlobPair& pair = stage.pairs()[i];
    packet_.points[i].rayGap = rayGap(rays, *pair.left, *pair.right);
  }
}

}  // namespace trace
