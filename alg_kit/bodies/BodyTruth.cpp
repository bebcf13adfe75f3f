#include <alg_kit/bodies/BodyTruth.h>

#include <alg_kit/bodies/PairSight.h>
#include <alg_kit/recording/Recording.h>

#include <cmath>

namespace bodies {
namespace {

Eigen::Vector3d deliveredPlaceOf(const session::TruthRow& row) {
  return {row.position[0], -row.position[1], -row.position[2]};
}

std::optional<RigidMotion> truePairMotion(const Body& pair,
                                          const std::vector<session::TruthRow>& rows) {
  std::optional<Eigen::Vector3d> ends[2];
  for (const session::TruthRow& row : rows)
    if (row.object == kPairId && (row.marker == 0 || row.marker == 1))
      ends[row.marker] = deliveredPlaceOf(row);
  if (!ends[0] || !ends[1]) return std::nullopt;
  return pairMotion(pair, *ends[0], *ends[1]);
}

BodyError pairErrorOf(const Body& pair, const RigidMotion& found, const RigidMotion& truth) {
  const Eigen::Vector3d axis = axisOf(pair), seen = found.orientation * axis;
  const bool turned = seen.dot(truth.orientation * axis) < 0;
  const RigidMotion like = turned ? otherWayRound(pair, truth) : truth;
  const Eigen::Vector3d along = like.orientation * axis;
  return {(found.position - like.position).norm(),
          kDegrees * std::atan2(seen.cross(along).norm(), seen.dot(along))};
}

}  // namespace

std::optional<RigidMotion> trueMotionOf(const Body& body,
                                        const std::vector<session::TruthRow>& rows) {
  if (body.isPair()) return truePairMotion(body, rows);
  std::vector<Eigen::Vector3d> from, to;
  for (const session::TruthRow& row : rows) {
    const BodyMarker* const marker = body.markerOf(row.object);
    if (marker == nullptr || row.marker != 0) continue;
    from.push_back(marker->position);
    to.push_back(deliveredPlaceOf(row));
  }
  if (!spanPlane(from, kLeastExtent)) return std::nullopt;
  const std::vector<double> weights(from.size(), 1);
  return fitRigid(from.data(), to.data(), weights.data(), from.size());
}

std::map<std::int64_t, RigidMotion> trueMotions(const recording::RecordingReader& reader,
                                                const Body& body) {
  std::map<std::int64_t, RigidMotion> result;
  std::vector<session::TruthRow> packet;
  const auto finishPacket = [&] {
    if (const auto motion = trueMotionOf(body, packet)) result[*packet.front().call] = *motion;
    packet.clear();
  };
  auto rows = reader.truthRows();
  for (session::TruthRow row; rows.next(row);) {
    if (!row.call) continue;
    if (!packet.empty() && packet.front().call != row.call) finishPacket();
    packet.push_back(row);
  }
  finishPacket();
  return result;
}

BodyError errorOf(const Body& body, const RigidMotion& found, const RigidMotion& truth) {
  if (body.isPair()) return pairErrorOf(body, found, truth);
  const Eigen::Matrix<double, 6, 1> error = differenceOf(truth, found);
  return {error.head<3>().norm(), kDegrees * error.tail<3>().norm()};
}

BodyErrors errorsOf(const Body& body, const std::vector<BodyRow>& rows,
                    const std::map<std::int64_t, RigidMotion>& truth) {
  BodyErrors errors;
  for (const BodyRow& row : rows) {
    const auto found = truth.find(row.call);
    if (found == truth.end()) continue;
    const BodyError error = errorOf(body, row.pose.pose.motion, found->second);
    errors.position += error.position * error.position;
    errors.turn += error.turn * error.turn;
    ++errors.packets;
  }
  if (errors.packets == 0) return errors;
  const auto count = static_cast<double>(errors.packets);
  errors.position = std::sqrt(errors.position / count);
  errors.turn = std::sqrt(errors.turn / count);
  return errors;
}

}  // namespace bodies
