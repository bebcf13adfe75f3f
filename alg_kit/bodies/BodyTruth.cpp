#include <alg_kit/bodies/BodyTruth.h>

#include <alg_kit/recording/Recording.h>

#include <cmath>

namespace bodies {
namespace {

constexpr double kDegrees = 57.29577951308232;

/// A packet's true places, while they are read.
struct Places {
  std::vector<Eigen::Vector3d> from, to;
  std::vector<double> weights;

  void addTo(std::map<std::int64_t, RigidMotion>& result, std::int64_t call) {
    if (spanPlane(from, kLeastExtent))
      result[call] = fitRigid(from.data(), to.data(), weights.data(), from.size());
    *this = {};
  }
};

}  // namespace

std::map<std::int64_t, RigidMotion> trueMotions(const recording::RecordingReader& reader,
                                                const Body& body) {
  std::map<std::int64_t, RigidMotion> result;
  Places places;
  std::int64_t call = -1;
  auto rows = reader.truthRows();
  for (session::TruthRow row; rows.next(row);) {
    if (!row.call) continue;
    if (*row.call != call) places.addTo(result, call);
    call = *row.call;
    const BodyMarker* const marker = body.markerOf(row.object);
    if (marker == nullptr || row.marker != 0) continue;
    places.from.push_back(marker->position);
    places.to.push_back({row.position[0], -row.position[1], -row.position[2]});
    places.weights.push_back(1);
  }
  places.addTo(result, call);
  return result;
}

BodyErrors errorsOf(const std::vector<BodyRow>& rows,
                    const std::map<std::int64_t, RigidMotion>& truth) {
  BodyErrors errors;
  for (const BodyRow& row : rows) {
    const auto found = truth.find(row.call);
    if (found == truth.end()) continue;
    const auto error = differenceOf(found->second, row.pose.pose.motion);
    errors.position += error.head<3>().squaredNorm();
    errors.turn += error.tail<3>().squaredNorm();
    ++errors.packets;
  }
  if (errors.packets == 0) return errors;
  const auto count = static_cast<double>(errors.packets);
  errors.position = std::sqrt(errors.position / count);
  errors.turn = kDegrees * std::sqrt(errors.turn / count);
  return errors;
}

}  // namespace bodies
