#include <alg_kit/bodies/BodyTruth.h>

#include <alg_kit/recording/Recording.h>

#include <cmath>

namespace bodies {
namespace {

constexpr double kDegrees = 57.29577951308232;

}  // namespace

std::optional<RigidMotion> trueMotionOf(const Body& body,
                                        const std::vector<session::TruthRow>& rows) {
  std::vector<Eigen::Vector3d> from, to;
  for (const session::TruthRow& row : rows) {
    const BodyMarker* const marker = body.markerOf(row.object);
    if (marker == nullptr || row.marker != 0) continue;
    from.push_back(marker->position);
    to.push_back({row.position[0], -row.position[1], -row.position[2]});
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

BodyError errorOf(const RigidMotion& found, const RigidMotion& truth) {
  const Eigen::Matrix<double, 6, 1> error = differenceOf(truth, found);
  return {error.head<3>().norm(), kDegrees * error.tail<3>().norm()};
}

BodyErrors errorsOf(const std::vector<BodyRow>& rows,
                    const std::map<std::int64_t, RigidMotion>& truth) {
  BodyErrors errors;
  for (const BodyRow& row : rows) {
    const auto found = truth.find(row.call);
    if (found == truth.end()) continue;
    const BodyError error = errorOf(row.pose.pose.motion, found->second);
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
