#include <bench/peers/Stereo.h>

#include <opencv2/calib3d.hpp>

#include <algorithm>
#include <optional>

namespace peers {

namespace {

constexpr double kMinDepth = 10, kMaxDepth = 4500;
constexpr double kMaxJump = 150;
constexpr double kSmoothingRadius = 3;
constexpr std::size_t kHistory = 3;

double distanceFromLine(const cv::Vec3d& line, const cv::Point2d& point) {
  return std::abs(line[0] * point.x + line[1] * point.y + line[2]) / std::hypot(line[0], line[1]);
}

bool accepted(const Blob& left, const Blob& right) {
  const double distance =
      (distanceFromLine(left.line, right.centre) + distanceFromLine(right.line, left.centre)) / 2;
  return (left.diameter + right.diameter) * 0.5 > distance;
}

std::vector<Blob> ofId(const std::vector<Blob>& blobs, int id) {
  std::vector<Blob> selected;
  std::copy_if(blobs.begin(), blobs.end(), std::back_inserter(selected),
               [&](const Blob& blob) { return blob.id == id; });
  return selected;
}

void keepLargest(std::vector<Blob>& blobs, std::size_t count) {
  std::sort(blobs.begin(), blobs.end(),
            [](const Blob& a, const Blob& b) { return a.diameter > b.diameter; });
  blobs.resize(count);
}

std::vector<cv::Point2d> centred(const std::vector<Blob>& blobs) {
  cv::Point2d mean;
  for (const Blob& blob : blobs) mean += blob.centre;
  mean /= static_cast<double>(blobs.size());
  std::vector<cv::Point2d> points;
  points.reserve(blobs.size());
  for (const Blob& blob : blobs) points.push_back(blob.centre - mean);
  return points;
}

std::size_t nearest(const cv::Point2d& target, const std::vector<cv::Point2d>& points) {
  const auto closer = [&](const cv::Point2d& a, const cv::Point2d& b) {
    return cv::norm(a - target) < cv::norm(b - target);
  };
  return static_cast<std::size_t>(std::min_element(points.begin(), points.end(), closer) -
                                  points.begin());
}

std::optional<cv::Vec3d> meanOfId(const std::vector<Point>& points, int id) {
  cv::Vec3d sum;
  int count = 0;
  for (const Point& point : points) {
    if (point.id != id) continue;
    sum += point.position;
    ++count;
  }
  if (count == 0) return std::nullopt;
  return sum / count;
}

template <typename Condition>
void removeIf(std::vector<Point>& points, Condition condition) {
  points.erase(std::remove_if(points.begin(), points.end(), condition), points.end());
}

}  // namespace

Stereo::Stereo(const algorithm::StereoCalibration& calibration)
    : leftK_(calibration.leftIntrinsics),
      rightK_(calibration.rightIntrinsics),
      fundamental_(calibration.fundamental),
      leftRay_(cv::Matx33d(calibration.rotation) * leftK_.inv()),
      rightRay_(rightK_.inv()),
      leftD_(calibration.leftDistortion),
      rightD_(calibration.rightDistortion),
      translation_(calibration.translation),
      history_(kIds) {}

std::vector<Point> Stereo::process(CameraBlobs blobs) {
  std::vector<Point> points;
  if (!blobs.left.empty() && !blobs.right.empty()) {
    undistortOntoLines(blobs.left, leftK_, leftD_, 1);
    undistortOntoLines(blobs.right, rightK_, rightD_, 2);
    for (int id = 0; id < kIds; ++id) matchId(ofId(blobs.left, id), ofId(blobs.right, id), points);
  }
  filter(points);
  smooth(points);
  previous_ = points;
  return points;
}

void Stereo::undistortOntoLines(std::vector<Blob>& blobs, const cv::Matx33d& K, const cv::Vec4d& D,
                                int whichImage) const {
  std::vector<cv::Point2d> raw, undistorted;
  raw.reserve(blobs.size());
  for (const Blob& blob : blobs) raw.push_back(blob.centre);
  cv::fisheye::undistortPoints(raw, undistorted, K, D, cv::noArray(), K);
  std::vector<cv::Vec3d> lines;
  cv::computeCorrespondEpilines(undistorted, whichImage, fundamental_, lines);
  for (std::size_t i = 0; i < blobs.size(); ++i) {
    blobs[i].centre = undistorted[i];
    blobs[i].line = lines[i];
  }
}

cv::Vec3d Stereo::midpoint(const Blob& left, const Blob& right) const {
  const cv::Vec3d dL = leftRay_ * cv::Vec3d(left.centre.x, left.centre.y, 1);
  const cv::Vec3d dR = rightRay_ * cv::Vec3d(right.centre.x, right.centre.y, 1);
  const cv::Matx22d normal(dR.dot(dR), dR.dot(dL), dL.dot(dR), dL.dot(dL));
  const cv::Vec2d parameters = normal.inv() * cv::Vec2d(dR.dot(translation_), dL.dot(translation_));
  return (parameters[0] * dR + translation_ - parameters[1] * dL) / 2;
}

void Stereo::matchId(std::vector<Blob> left, std::vector<Blob> right,
                     std::vector<Point>& points) const {
  if (left.empty() || right.empty()) return;
  if (left.size() < right.size()) keepLargest(right, left.size());
  if (left.size() > right.size()) keepLargest(left, right.size());

  const auto addPair = [&](const Blob& l, const Blob& r) {
    if (!accepted(l, r)) return;
    const cv::Vec3d position = midpoint(l, r);
    if (position[2] > kMinDepth) points.push_back({position, l.id});
  };
  if (left.size() == 1) {
    addPair(left[0], right[0]);
    return;
  }
  const std::vector<cv::Point2d> centredLeft = centred(left), centredRight = centred(right);
  for (std::size_t i = 0; i < left.size(); ++i) {
    const std::size_t j = nearest(centredLeft[i], centredRight);
    if (nearest(centredRight[j], centredLeft) == i) addPair(left[i], right[j]);
  }
}

void Stereo::filter(std::vector<Point>& points) const {
  removeIf(points, [](const Point& point) { return point.position[2] > kMaxDepth; });
  for (int id = 0; id < kIds; ++id) {
    const std::optional<cv::Vec3d> mean = meanOfId(previous_, id);
    if (mean) {
      removeIf(points, [&](const Point& point) {
        return point.id == id && cv::norm(point.position - *mean) > kMaxJump;
      });
    }
    // One point of every id stays: the first one in the first frame, later the nearest.
    const cv::Vec3d centre = mean.value_or(cv::Vec3d());
    const Point* best = nullptr;
    for (const Point& point : points) {
      if (point.id != id) continue;
      if (best == nullptr || (!previous_.empty() && cv::norm(point.position - centre) <
                                                        cv::norm(best->position - centre))) {
        best = &point;
      }
    }
    if (best == nullptr) continue;
    const cv::Vec3d kept = best->position;
    removeIf(points, [&](const Point& point) { return point.id == id && point.position != kept; });
  }
}

void Stereo::smooth(std::vector<Point>& points) {
  for (int id = 0; id < kIds; ++id) {
    std::deque<cv::Vec3d>& history = history_[static_cast<std::size_t>(id)];
    const auto found = std::find_if(points.begin(), points.end(),
                                    [&](const Point& point) { return point.id == id; });
    if (found == points.end()) {
      history.clear();
      continue;
    }
    const cv::Vec3d raw = found->position;
    cv::Vec3d sum = raw;
    int count = 1;
    for (auto past = history.rbegin(); past != history.rend(); ++past) {
      const double w = cv::norm(raw - *past) / kSmoothingRadius;
      if (!(w < 1)) continue;
      sum += (1 - w) * *past + w * raw;
      ++count;
    }
    found->position = sum / count;
    history.push_back(raw);
    if (history.size() > kHistory) history.pop_front();
  }
}

}  // namespace peers
