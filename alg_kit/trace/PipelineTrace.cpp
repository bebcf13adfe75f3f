#include <alg_factory/api/DataSink.h>
#include <alg_factory/api/LogSink.h>
#include <alg_factory/blob2d/BlobMerger.h>
#include <alg_factory/blob2d/BlobMoments.h>
#include <alg_factory/blob2d/StableSort.h>
#include <alg_factory/stereo3d/EpipolarLines.h>
#include <alg_factory/stereo3d/EpipolarMatcher.h>
#include <alg_factory/stereo3d/PointFilter.h>
#include <alg_factory/stereo3d/Triangulation.h>
#include <alg_kit/rig/StereoRig.h>
#include <alg_kit/trace/PipelineTrace.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace trace {
namespace {

using algorithm::Blob2DPoint;
using algorithm::BlobPairs;
using algorithm::StereoPoint;
using algorithm::StereoPoints;
using Groups = std::vector<std::vector<Blob2DPoint>>;

constexpr double kMinDepth = 10;        // what triangulate() keeps lies farther
constexpr double kSingleMaxJump = 80;   // of the jump test of objects 0 and 1
constexpr std::size_t kPairObject = 2;  // of product type 1
constexpr int kProductWithGuards = 1;

struct FateText {
  const char* key;
  const char* description;
};

constexpr FateText kTexts[kBlobFates] = {
    {"no-weight", "without weight"},
    {"merged", "merged into an overlapping blob"},
    {"no-partner", "no partner: the other camera saw none of the id"},
    {"surplus", "no partner: the other camera saw fewer of the id"},
    {"not-mutual", "no partner: not each other's nearest"},
    {"epipolar", "refused by the epipolar test"},
    {"too-near", "point behind or too near to the camera"},
    {"too-deep", "point removed by the depth pass"},
    {"jumped", "point removed by the jump pass"},
    {"far-from-reference", "point removed by the reference pass"},
    {"too-many", "point removed by the count pass"},
    {"held-by-jump", "point rejected by the object's jump test"},
    {"held-by-ratio", "point rejected by the pair's size ratio test"},
    {"delivered", "delivered"},
};

/// Marks: copies of blobs carry the index of their TracedBlob where the step at hand reads nothing.
int markOf2D(const Blob2DPoint& point) {
  return static_cast<int>(point.aux[0]);
}
int markOfPair(const Blob2DPoint& point) {
  return point.id;
}
int markOf3D(const StereoPoint& point) {
  return point.diameter;
}

bool same(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

void confirm(bool agrees, const char* stage) {
  if (!agrees)
    throw std::logic_error(std::string("the trace and the library disagree about ") + stage);
}

bool sameBlobs(const std::vector<Blob2DPoint>& a, const std::vector<Blob2DPoint>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const Blob2DPoint& p, const Blob2DPoint& q) {
                      return same(p.x, q.x) && same(p.y, q.y) && p.diameter == q.diameter;
                    });
}

/// Squared distance of points i and j once the means of both lists are aligned.
double alignedDistance(const std::vector<Blob2DPoint>& from, std::size_t i,
                       const std::vector<Blob2DPoint>& to, std::size_t j) {
  const auto mean = [](const std::vector<Blob2DPoint>& points, auto coordinate) {
    double sum = 0;
    for (const Blob2DPoint& point : points) sum += coordinate(point);
    return sum / static_cast<double>(points.size());
  };
  const auto x = [](const Blob2DPoint& p) { return p.x; };
  const auto y = [](const Blob2DPoint& p) { return p.y; };
  const double dx = (to[j].x - mean(to, x)) - (from[i].x - mean(from, x));
  const double dy = (to[j].y - mean(to, y)) - (from[i].y - mean(from, y));
  return dx * dx + dy * dy;
}

std::size_t nearestOf(const std::vector<Blob2DPoint>& from, std::size_t i,
                      const std::vector<Blob2DPoint>& to) {
  std::size_t best = 0;
  for (std::size_t j = 1; j < to.size(); ++j)
    if (alignedDistance(from, i, to, j) < alignedDistance(from, i, to, best)) best = j;
  return best;
}

algorithm::StereoRays raysOf(const algorithm::StereoCalibration& c) {
  const Eigen::Matrix3d leftInverse = rig::matrixFrom(c.leftIntrinsics).inverse();
  algorithm::StereoRays rays;
  rays.leftRayInRight = rig::matrixFrom(c.rotation) * leftInverse;
  rays.rightRay = rig::matrixFrom(c.rightIntrinsics).inverse();
  rays.leftCentreInRight = Eigen::Vector3d(c.translation);
  return rays;
}

/// Shortest distance between the rays of a pair: along the common perpendicular.
double rayGap(const algorithm::StereoRays& rays, const Blob2DPoint& left,
              const Blob2DPoint& right) {
  const Eigen::Vector3d dL = rays.leftRayInRight * Eigen::Vector3d(left.x, left.y, 1);
  const Eigen::Vector3d dR = rays.rightRay * Eigen::Vector3d(right.x, right.y, 1);
  const Eigen::Vector3d perpendicular = dL.cross(dR).normalized();
  return std::fabs(perpendicular.dot(rays.leftCentreInRight));
}

double distanceToMean(const StereoPoint& point, const StereoPoints& points, int id) {
  return algorithm::distance(point, algorithm::meanOfId(points, id));
}

}  // namespace

const char* describe(BlobFate fate) {
  return kTexts[static_cast<int>(fate)].description;
}

const char* keyOf(BlobFate fate) {
  return kTexts[static_cast<int>(fate)].key;
}

struct PipelineTrace::Sinks : algorithm::LogSink, algorithm::DataSink {
  bool Log(int, const char*) override { return true; }
  bool Deliver(const void* buffer, int offset, int) override {
    block.emplace();
    std::memcpy(&*block, static_cast<const unsigned char*>(buffer) + offset, sizeof *block);
    return true;
  }
  std::optional<algorithm::ResultBlock> block;
};

/// What the stages remember between frames, before the frame.
struct PipelineTrace::Before {
  StereoPoints previousPoints;
  std::array<algorithm::JumpGuard, 2> guards;
  algorithm::TwoPointObject pair;
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
  const unsigned char* const given = call.pointerGiven ? payload : nullptr;
  if (call.kind == session::CallKind::kInit) service_.initialize(call.type, given, 0);
  // Queries and filter modes touch poses only, never points.
  if (call.kind != session::CallKind::kInputStream) return nullptr;

  const Before before{service_.stereo().previousPoints(),
                      {service_.steady().guard(0), service_.steady().guard(1)},
                      service_.steady().twoPointObject()};
  service_.inputStream(call.type, given, 0, call.length);
  if (!sinks_->block) return nullptr;

  packet_.productType = service_.steady().productType();
  packet_.blobIdCount = service_.protocol().blobIdCount();
  packet_.streamType = call.type;
  packet_.frame = service_.protocol().frame();
  packet_.length = std::min(call.length, hid::kFrameSize);
  packet_.hadPreviousPoints = !before.previousPoints.empty();
  packet_.blobs.clear();
  packet_.points.clear();

  decodePacket();
  Groups groups[2];
  traceBlobs(0, groups[0]);
  traceBlobs(1, groups[1]);
  const std::vector<BlobPairs> pairsById = tracePairs(groups);
  tracePoints(pairsById, before);
  traceObjects(before);
  return &packet_;
}

void PipelineTrace::finish(int blob, BlobFate fate, double value, double limit) {
  TracedBlob& traced = packet_.blobs[static_cast<std::size_t>(blob)];
  traced.fate = fate;
  traced.value = value;
  traced.limit = limit;
}

void PipelineTrace::finish(TracedPoint& point, BlobFate fate, double value, double limit) {
  point.fate = fate;
  point.value = value;
  point.limit = limit;
  finish(point.left, fate, value, limit);
  finish(point.right, fate, value, limit);
}

void PipelineTrace::decodePacket() {
  packet_.pieces = dissect(packet_.frame, packet_.length, packet_.blobIdCount);
  std::vector<hid::RawBlob> decoded[2];
  packet_.status =
      hid::decode(packet_.frame, packet_.length, packet_.blobIdCount, decoded[0], decoded[1]);
  std::size_t counts[2] = {};
  for (const PacketPiece& piece : packet_.pieces) {
    if (piece.kind != PacketPiece::Kind::kRecord) continue;
    const int camera = piece.step.camera;
    const hid::RawBlob& raw = piece.step.blob;
    const std::size_t n = counts[camera]++;
    confirm(n < decoded[camera].size() && decoded[camera][n].id == raw.id &&
                decoded[camera][n].weight == raw.weight && decoded[camera][n].sumX == raw.sumX &&
                decoded[camera][n].sumY == raw.sumY,
            "the records of a packet");
    TracedBlob blob;
    blob.camera = camera;
    blob.offset = piece.offset;
    blob.raw = raw;
    packet_.blobs.push_back(blob);
  }
  confirm(counts[0] == decoded[0].size() && counts[1] == decoded[1].size(),
          "the number of records of a packet");
}

void PipelineTrace::traceBlobs(int camera, Groups& groups) {
  const algorithm::Blob2D& stage = camera == 0 ? service_.blobLeft() : service_.blobRight();
  std::vector<hid::RawBlob> raw;
  for (const TracedBlob& blob : packet_.blobs)
    if (blob.camera == camera) raw.push_back(blob.raw);
  groups.resize(static_cast<std::size_t>(stage.blobIdCount()));
  algorithm::groupById(raw, stage.areaDivisor(), groups);

  // The groups hold the blobs with weight, in packet order.
  std::vector<std::size_t> next(groups.size());
  for (std::size_t i = 0; i < packet_.blobs.size(); ++i) {
    TracedBlob& blob = packet_.blobs[i];
    if (blob.camera != camera || blob.raw.weight == 0) continue;
    const auto id = static_cast<std::size_t>(blob.raw.id);
    Blob2DPoint& point = groups[id][next[id]++];
    point.aux[0] = static_cast<double>(i);
    blob.x = point.x;
    blob.y = point.y;
    blob.diameter = point.diameter;
  }

  for (std::size_t g = 0; g < groups.size(); ++g) {
    auto& group = groups[g];
    if (group.size() > 1) algorithm::sortByDiameter(group);
    // As mergeOverlapping does, noting who takes whom.
    for (std::size_t j = 0; j < group.size(); ++j) {
      for (std::size_t k = j + 1; k < group.size();) {
        if (!algorithm::overlap(group[j], group[k])) {
          ++k;
          continue;
        }
        const int taken = markOf2D(group[k]);
        finish(taken, BlobFate::kMerged,
               std::hypot(group[k].x - group[j].x, group[k].y - group[j].y),
               (group[j].diameter + group[k].diameter) * 0.5);
        packet_.blobs[static_cast<std::size_t>(taken)].other = markOf2D(group[j]);
        group[j].x = (group[j].x + group[k].x) * 0.5;
        group[j].y = (group[j].y + group[k].y) * 0.5;
        group.erase(group.begin() + static_cast<std::ptrdiff_t>(k));
      }
    }
    confirm(sameBlobs(group, stage.groups()[g]), "merged blobs");
    for (const Blob2DPoint& point : group) {
      TracedBlob& blob = packet_.blobs[static_cast<std::size_t>(markOf2D(point))];
      blob.x = point.x;
      blob.y = point.y;
    }
  }
}

std::vector<BlobPairs> PipelineTrace::tracePairs(const Groups (&groups)[2]) {
  const algorithm::Blob3D& stage = service_.stereo();
  const std::vector<algorithm::ImagePoint>* undistorted[2] = {&stage.leftUndistorted(),
                                                              &stage.rightUndistorted()};
  const bool bothSaw = !undistorted[0]->empty() && !undistorted[1]->empty();
  const algorithm::LineDirection directions[2] = {algorithm::LineDirection::kLeftToRight,
                                                  algorithm::LineDirection::kRightToLeft};
  Groups byId[2] = {groups[0], groups[1]};
  for (int camera = 0; camera < 2; ++camera) {
    std::vector<algorithm::ImageLine> lines;
    if (bothSaw)
      algorithm::epipolarLines(stage.calibration().fundamental, directions[camera],
                               *undistorted[camera], lines);
    std::size_t n = 0;  // the stage takes the groups one after the other
    for (auto& group : byId[camera]) {
      for (Blob2DPoint& point : group) {
        point.id = markOf2D(point);
        if (!bothSaw) continue;
        confirm(n < lines.size(), "the number of blobs");
        point.x = (*undistorted[camera])[n].x;
        point.y = (*undistorted[camera])[n].y;
        point.aux[0] = lines[n].a;
        point.aux[1] = lines[n].b;
        point.aux[2] = lines[n].c;
        ++n;
      }
    }
  }

  std::vector<BlobPairs> pairsById(stage.pairsById().size());
  for (std::size_t g = 0; g < pairsById.size(); ++g) {
    pairsById[g] = matchId(byId[0][g], byId[1][g]);
    confirm(sameBlobs(pairsById[g], stage.pairsById()[g]), "pairs");
  }
  return pairsById;
}

BlobPairs PipelineTrace::matchId(std::vector<Blob2DPoint> left, std::vector<Blob2DPoint> right) {
  if (left.empty() || right.empty()) {
    for (const auto* blobs : {&left, &right})
      for (const Blob2DPoint& blob : *blobs) finish(markOfPair(blob), BlobFate::kNoPartner);
    return {};
  }

  // Those that survive the cut get another fate below.
  for (const auto* blobs : {&left, &right})
    for (const Blob2DPoint& blob : *blobs)
      finish(markOfPair(blob), BlobFate::kSurplus, static_cast<double>(blobs->size()),
             static_cast<double>(std::min(left.size(), right.size())));
  algorithm::cutToSameCount(left, right);

  BlobPairs pairs;
  const std::size_t n = left.size();
  const auto traced = [&](const Blob2DPoint& point) -> TracedBlob& {
    return packet_.blobs[static_cast<std::size_t>(markOfPair(point))];
  };
  const auto note = [&](const std::vector<Blob2DPoint>& from, std::size_t i,
                        const std::vector<Blob2DPoint>& to) {
    const std::size_t j = nearestOf(from, i, to);
    const std::size_t k = nearestOf(to, j, from);
    finish(markOfPair(from[i]), BlobFate::kNotMutual);
    traced(from[i]).nearest = markOfPair(to[j]);
    traced(from[i]).nearestsNearest = markOfPair(from[k]);
    return k == i ? j : n;
  };
  for (std::size_t j = 0; j < n; ++j) note(right, j, left);
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t j = note(left, i, right);
    if (j == n) continue;
    traced(left[i]).other = markOfPair(right[j]);
    traced(right[j]).other = markOfPair(left[i]);
    const double distance = algorithm::epipolarDistance(left[i], right[j]);
    const double limit = (left[i].diameter + right[j].diameter) * 0.5;
    finish(markOfPair(left[i]), BlobFate::kEpipolar, distance, limit);
    finish(markOfPair(right[j]), BlobFate::kEpipolar, distance, limit);
    if (!algorithm::accepted(left[i], right[j])) continue;
    pairs.push_back(left[i]);
    pairs.push_back(right[j]);
  }
  return pairs;
}

void PipelineTrace::tracePoints(const std::vector<BlobPairs>& pairsById, const Before& before) {
  const algorithm::Blob3D& stage = service_.stereo();
  const algorithm::StereoRays rays = raysOf(stage.calibration());
  StereoPoints points;
  for (std::size_t g = 0; g < pairsById.size(); ++g) {
    for (std::size_t i = 0; i + 1 < pairsById[g].size(); i += 2) {
      const BlobPairs pair{pairsById[g][i], pairsById[g][i + 1]};
      const int mark = static_cast<int>(packet_.points.size());
      TracedPoint& point = packet_.points.emplace_back();
      point.id = static_cast<int>(g);
      point.left = markOfPair(pair[0]);
      point.right = markOfPair(pair[1]);
      point.epipolarDistance = algorithm::epipolarDistance(pair[0], pair[1]);
      point.rayGap = rayGap(rays, pair[0], pair[1]);
      for (const int blob : {point.left, point.right})
        packet_.blobs[static_cast<std::size_t>(blob)].point = mark;

      const Eigen::Vector3d p = algorithm::midpoint(rays, pair[0], pair[1]);
      for (int axis = 0; axis < 3; ++axis) point.position[axis] = p[axis];
      finish(point, BlobFate::kTooNear, p.z(), kMinDepth);
      const std::size_t count = points.size();
      algorithm::triangulate(rays, pair, point.id, points);
      if (points.size() > count) points.back().diameter = mark;
    }
  }

  const auto pass = [&](BlobFate fate, auto remove, auto valueOf, auto limitOf) {
    const StereoPoints entered = points;
    remove();
    for (const StereoPoint& point : entered) {
      const bool stays = std::any_of(points.begin(), points.end(), [&](const StereoPoint& p) {
        return markOf3D(p) == markOf3D(point);
      });
      if (!stays)
        finish(packet_.points[static_cast<std::size_t>(markOf3D(point))], fate,
               valueOf(point, entered), limitOf(point));
    }
  };
  const auto constant = [](double limit) { return [limit](const StereoPoint&) { return limit; }; };
  const StereoPoints& previous = before.previousPoints;
  const auto fromPreviousMean = [&](const StereoPoint& p, const StereoPoints&) {
    return distanceToMean(p, previous, p.id);
  };
  const auto& expected = stage.expectedPoints();

  pass(
      BlobFate::kTooDeep, [&] { algorithm::removeTooDeep(algorithm::Blob3D::maxDepth, points); },
      [](const StereoPoint& p, const StereoPoints&) { return p.z; },
      constant(algorithm::Blob3D::maxDepth));
  pass(
      BlobFate::kJumped, [&] { algorithm::removeJumps(previous, points); }, fromPreviousMean,
      constant(algorithm::kMaxJump));
  if (packet_.productType == 0 || packet_.productType == 1)
    pass(
        BlobFate::kFarFromReference,
        [&] { algorithm::removeFarFromReference(expected[algorithm::kReferenceId], points); },
        [](const StereoPoint& p, const StereoPoints& entered) {
          return distanceToMean(p, entered, algorithm::kReferenceId);
        },
        constant(algorithm::kMaxReferenceDistance));
  algorithm::SurplusScratch scratch;
  pass(
      BlobFate::kTooMany, [&] { algorithm::removeSurplus(expected, previous, scratch, points); },
      fromPreviousMean,
      [&](const StereoPoint& p) {
        return static_cast<double>(expected[static_cast<std::size_t>(p.id)]);
      });

  const StereoPoints& published = stage.previousPoints();
  confirm(points.size() == published.size(), "the number of points");
  for (std::size_t i = 0; i < points.size(); ++i) {
    confirm(points[i].id == published[i].id && same(points[i].leftX, published[i].leftX) &&
                same(points[i].leftY, published[i].leftY) &&
                same(points[i].rightX, published[i].rightX) &&
                same(points[i].rightY, published[i].rightY),
            "the points of a frame");
    TracedPoint& point = packet_.points[static_cast<std::size_t>(markOf3D(points[i]))];
    point.smoothed[0] = published[i].x;
    point.smoothed[1] = published[i].y;
    point.smoothed[2] = published[i].z;
    finish(point, BlobFate::kDelivered, 0, 0);
  }
  // What enters the smoothing is kept in its history: the first point of every id.
  for (std::size_t g = 0; g < stage.historyById().size(); ++g) {
    const auto first = std::find_if(points.begin(), points.end(), [&](const StereoPoint& p) {
      return p.id == static_cast<int>(g);
    });
    if (first == points.end()) continue;
    const StereoPoint& raw = stage.historyById()[g].back();
    confirm(same(first->x, raw.x) && same(first->y, raw.y) && same(first->z, raw.z),
            "triangulated positions");
  }
}

void PipelineTrace::traceObjects(const Before& before) {
  const algorithm::Steady3D& stage = service_.steady();
  std::vector<std::vector<TracedPoint*>> ofObject(
      static_cast<std::size_t>(std::max(stage.objectCount(), 0)));
  for (TracedPoint& point : packet_.points)
    if (point.fate == BlobFate::kDelivered)
      ofObject.at(static_cast<std::size_t>(point.id)).push_back(&point);

  for (std::size_t object = 0; object < ofObject.size(); ++object) {
    const auto& points = ofObject[object];
    const algorithm::TrackedPoint& record = sinks_->block->records[object];
    confirm((record.id != -1) == !points.empty(), "the objects of a block");
    if (points.empty()) continue;
    if (packet_.productType != kProductWithGuards) {
      confirm(record.x == static_cast<float>(points[0]->smoothed[0]) &&
                  record.y == -static_cast<float>(points[0]->smoothed[1]) &&
                  record.z == -static_cast<float>(points[0]->smoothed[2]),
              "a delivered position");
      continue;
    }
    const bool isPair = object == kPairObject;
    const algorithm::JumpGuard& guardBefore = isPair ? before.pair.guard() : before.guards[object];
    const algorithm::JumpGuard& guardAfter =
        isPair ? stage.twoPointObject().guard() : stage.guard(object);
    const bool ratioFailed =
        isPair && points.size() == 2 &&
        !same(before.pair.referenceRatio(), stage.twoPointObject().referenceRatio());
    if (ratioFailed) {
      const auto& markers = stage.markers();
      const double ratio = static_cast<double>(markers.sighting[kPairObject].diameter) /
                           markers.sighting[kPairObject + 1].diameter;
      const double change = ratio / static_cast<double>(before.pair.referenceRatio());
      for (TracedPoint* point : points)
        finish(*point, BlobFate::kHeldByRatio, change, static_cast<double>(stage.typeParam2()));
    } else if (guardAfter.rejectCount() == guardBefore.rejectCount() + 1) {
      const algorithm::PointF proposed = proposedPosition(object, before);
      for (TracedPoint* point : points)
        finish(*point, BlobFate::kHeldByJump,
               static_cast<double>(algorithm::distance(proposed, guardBefore.lastAccepted())),
               isPair ? static_cast<double>(algorithm::TwoPointObject::kMaxJump) : kSingleMaxJump);
    }
  }
}

algorithm::PointF PipelineTrace::proposedPosition(std::size_t object, const Before& before) const {
  const algorithm::Steady3D& stage = service_.steady();
  const algorithm::MarkerPoints& markers = stage.markers();
  if (object != kPairObject) return markers.position[object];
  // A pair that forgot its past accepts whatever it would have proposed; the side that was decided
  // is given as a hint, because that is forgotten too.
  algorithm::TwoPointObject pair = before.pair;
  pair.forget();
  const int hint = stage.twoPointObject().side() == algorithm::PairSide::kFirst ? 1 : 2;
  const std::size_t a = kPairObject, b = kPairObject + 1;
  if (markers.index[b] == -1) return pair.seeOne(markers.position[a], hint);
  return pair.seeBoth(markers.position[a], markers.position[b], markers.sighting[a],
                      markers.sighting[b], hint, stage.typeParam2());
}

namespace {

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

std::string blobName(int index) {
  return "blob " + std::to_string(index);
}

}  // namespace

std::string reasonOf(const PacketTrace& packet, const TracedBlob& blob) {
  const std::string text = describe(blob.fate);
  const std::string value = number(blob.value), limit = number(blob.limit);
  const char* const otherCamera = blob.camera == 0 ? "right" : "left";
  switch (blob.fate) {
    case BlobFate::kNoWeight:
      return "weight 0: no centre";
    case BlobFate::kMerged:
      return "merged into " + blobName(blob.other) + ": " + value +
             " px apart, below their mean diameter of " + limit;
    case BlobFate::kNoPartner:
      return std::string("no partner: the ") + otherCamera + " camera saw no blob of id " +
             std::to_string(blob.raw.id);
    case BlobFate::kSurplus:
      return std::string("no partner: of ") + value + " blobs the largest " + limit +
             " were kept, as many as the " + otherCamera + " camera saw; diameter " +
             std::to_string(blob.diameter);
    case BlobFate::kNotMutual:
      return "no partner: its nearest (means aligned) is " + blobName(blob.nearest) +
             ", whose nearest is " + blobName(blob.nearestsNearest);
    case BlobFate::kEpipolar:
      return text + " with " + blobName(blob.other) + ": " + value +
             " px from the lines, not below the mean diameter of " + limit;
    case BlobFate::kTooNear:
      return text + ": z = " + value + ", must be above " + limit;
    case BlobFate::kTooDeep:
      return text + ": z = " + value + ", limit " + limit;
    case BlobFate::kJumped:
      return text + ": " + value + " from the mean of its id in the frame before, limit " + limit;
    case BlobFate::kFarFromReference:
      return text + ": " + value + " from the mean of id " +
             std::to_string(algorithm::kReferenceId) + ", limit " + limit;
    case BlobFate::kTooMany:
      return text + ": the id may have " + limit +
             (packet.hadPreviousPoints
                  ? ", and this one is farthest from where the id was (" + value + ")"
                  : ", and others come first (no earlier frame)");
    case BlobFate::kHeldByJump:
      return text + ": " + value + " from the last accepted position, limit " + limit;
    case BlobFate::kHeldByRatio:
      return text + ": the ratio of its diameters changed by the factor " + value + ", allowed 1/" +
             limit + " to " + limit;
    case BlobFate::kDelivered:
      return "delivered as object " + std::to_string(blob.raw.id) + " with " + blobName(blob.other);
  }
  return text;
}

}  // namespace trace
