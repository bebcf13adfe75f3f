#include <alg_kit/text/TextFile.h>
#include <sim/Trajectory.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string_view>

namespace sim {
namespace {

constexpr double kMillimetresPerMetre = 1000;
constexpr int kFields = 8;
constexpr std::string_view kBlank = " \t\r";

std::vector<std::string_view> wordsOf(std::string_view line) {
  std::vector<std::string_view> words;
  while (true) {
    const auto begin = line.find_first_not_of(kBlank);
    if (begin == std::string_view::npos) return words;
    line.remove_prefix(begin);
    const auto end = std::min(line.find_first_of(kBlank), line.size());
    words.push_back(line.substr(0, end));
    line.remove_prefix(end);
  }
}

TimedPose poseFrom(const std::vector<std::string_view>& words, const std::string& path, int line) {
  if (words.size() != kFields)
    throw text::FileError(path, line,
                          "expected 8 numbers (t tx ty tz qx qy qz qw), found " +
                              std::to_string(words.size()) +
                              (words.size() == 1 ? " word" : " words"));
  std::array<double, kFields> v{};
  for (int i = 0; i < kFields; ++i) {
    const char* const end = words[i].data() + words[i].size();
    const auto [parsed, error] = std::from_chars(words[i].data(), end, v[i]);
    if (error != std::errc() || parsed != end || !std::isfinite(v[i]))
      throw text::FileError(path, line,
                            "expected a finite number, found " + text::quoted(words[i]));
  }
  const Eigen::Quaterniond orientation(v[7], v[4], v[5], v[6]);
  const double norm = orientation.norm();
  if (!(norm > 1e-6) || !std::isfinite(norm))
    throw text::FileError(
        path, line, "expected a rotation quaternion, found one of length " + std::to_string(norm));
  return {v[0],
          {Eigen::Vector3d(v[1], v[2], v[3]) * kMillimetresPerMetre, orientation.normalized()}};
}

}  // namespace

Trajectory::Trajectory(std::vector<TimedPose> poses) : poses_(std::move(poses)) {
  if (poses_.empty()) throw std::invalid_argument("a trajectory needs a pose");
  for (std::size_t i = 1; i < poses_.size(); ++i)
    if (!(poses_[i].time > poses_[i - 1].time))
      throw std::invalid_argument("a trajectory's times must rise");
}

Trajectory Trajectory::readTum(const std::string& path) {
  const std::string text = text::readTextFile(path, "a trajectory");
  std::vector<TimedPose> poses;
  int lineNumber = 0;
  std::int64_t repeated = 0;
  for (std::string_view rest = text; !rest.empty();) {
    const auto end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    ++lineNumber;
    const auto words = wordsOf(line.substr(0, line.find('#')));
    if (words.empty()) continue;
    const TimedPose pose = poseFrom(words, path, lineNumber);
    if (!poses.empty() && pose.time < poses.back().time)
      throw text::FileError(
          path, lineNumber,
          "expected a time after the line before, found " + text::quoted(words[0]));
    if (!poses.empty() && pose.time == poses.back().time)
      ++repeated;
    else
      poses.push_back(pose);
  }
  if (poses.empty()) throw text::FileError(path, 0, "expected a trajectory, found no pose");
  Trajectory trajectory(std::move(poses));
  trajectory.repeatedStamps_ = repeated;
  return trajectory;
}

Pose Trajectory::at(double seconds) const {
  const double time = poses_.front().time + seconds;
  const auto after =
      std::upper_bound(poses_.begin(), poses_.end(), time,
                       [](double value, const TimedPose& pose) { return value < pose.time; });
  if (after == poses_.begin()) return poses_.front().pose;
  if (after == poses_.end()) return poses_.back().pose;
  const TimedPose& from = *(after - 1);
  const double share = (time - from.time) / (after->time - from.time);
  return {from.pose.position + share * (after->pose.position - from.pose.position),
          from.pose.orientation.slerp(share, after->pose.orientation).normalized()};
}

Trajectory Trajectory::part(double from, double seconds) const {
  const double origin = poses_.front().time;
  const double begin = std::clamp(from, 0.0, duration());
  const double end = std::clamp(from + seconds, begin, duration());
  std::vector<TimedPose> poses{{origin + begin, at(begin)}};
  for (const TimedPose& pose : poses_)
    if (pose.time > origin + begin && pose.time < origin + end) poses.push_back(pose);
  if (origin + end > poses.back().time) poses.push_back({origin + end, at(end)});
  return Trajectory(std::move(poses));
}

Trajectory Trajectory::placedInFront(double distance) const {
  Eigen::Vector3d mean = Eigen::Vector3d::Zero();
  for (const TimedPose& pose : poses_) mean += pose.pose.position;
  mean /= static_cast<double>(poses_.size());

  Eigen::Matrix3d R_WtoC;
  R_WtoC << 1, 0, 0, 0, 0, -1, 0, 1, 0;
  const Eigen::Quaterniond rotation(R_WtoC);
  std::vector<TimedPose> poses = poses_;
  for (TimedPose& pose : poses) {
    pose.pose.position = R_WtoC * (pose.pose.position - mean) + Eigen::Vector3d(0, 0, distance);
    pose.pose.orientation = (rotation * pose.pose.orientation).normalized();
  }
  return Trajectory(std::move(poses));
}

}  // namespace sim
