#include <alg_factory/stereo3d/Undistortion.h>

#include <algorithm>
#include <cmath>

namespace algorithm {

namespace {

constexpr int kSteps = 10;
constexpr double kCentreRadius = 1e-8;  // closer points stay where they are

// The steps of one point wait for each other's divisions. Points side by side in lanes, in plain
// loops that the compiler turns into vector instructions, hide that, and both cameras step together
// for the same reason. Each point's own operations stay the same and in the same order.
// Six: as many blobs as a camera usually reports of the largest product.
constexpr std::size_t kLanes = 6;
using Lanes = double[kLanes];

/// Up to kLanes points of one camera on their way.
class LensLanes {
 public:
  LensLanes(const double (&intrinsics)[9], const double (&distortion)[8],
            const std::vector<ImagePoint>& raw, std::size_t first)
      : fx_(intrinsics[0]),
        cx_(intrinsics[2]),
        fy_(intrinsics[4]),
        cy_(intrinsics[5]),
        k_(distortion),
        count_(first < raw.size() ? std::min(kLanes, raw.size() - first) : 0) {
    for (std::size_t i = 0; i < count_; ++i) {
      x_[i] = raw[first + i].x;
      y_[i] = raw[first + i].y;
    }
    for (std::size_t i = 0; i < kLanes; ++i) {
      x_[i] = (x_[i] - cx_) / fx_;
      y_[i] = (y_[i] - cy_) / fy_;
      r_[i] = std::sqrt(x_[i] * x_[i] + y_[i] * y_[i]);
      theta_[i] = r_[i];
    }
  }

  void refine() {
    for (std::size_t i = 0; i < kLanes; ++i) {
      const double theta2 = theta_[i] * theta_[i];
      const double theta4 = theta2 * theta2;
      const double theta6 = theta4 * theta2;
      const double theta8 = theta4 * theta4;
      theta_[i] = r_[i] / (1.0 + k_[0] * theta2 + k_[1] * theta4 + k_[2] * theta6 + k_[3] * theta8);
    }
  }

  void write(std::vector<ImagePoint>& undistorted, std::size_t first) const {
    for (std::size_t i = 0; i < count_; ++i) {
      const double scale = r_[i] > kCentreRadius ? std::tan(theta_[i]) / r_[i] : 1.0;
      undistorted[first + i] = {x_[i] * scale * fx_ + cx_, y_[i] * scale * fy_ + cy_};
    }
  }

 private:
  double fx_, cx_, fy_, cy_;
  const double (&k_)[8];
  std::size_t count_;
  Lanes x_ = {}, y_ = {}, r_, theta_;
};

}  // namespace

void undistort(const double (&intrinsics)[9], const double (&distortion)[8],
               const std::vector<ImagePoint>& raw, std::vector<ImagePoint>& undistorted) {
  undistorted.resize(raw.size());
  for (std::size_t first = 0; first < raw.size(); first += kLanes) {
    LensLanes lanes(intrinsics, distortion, raw, first);
    for (int step = 0; step < kSteps; ++step) lanes.refine();
    lanes.write(undistorted, first);
  }
}

void undistortBoth(const StereoCalibration& c, const std::vector<ImagePoint>& leftRaw,
                   const std::vector<ImagePoint>& rightRaw,
                   std::vector<ImagePoint>& leftUndistorted,
                   std::vector<ImagePoint>& rightUndistorted) {
  leftUndistorted.resize(leftRaw.size());
  rightUndistorted.resize(rightRaw.size());
  for (std::size_t first = 0; first < std::max(leftRaw.size(), rightRaw.size()); first += kLanes) {
    LensLanes left(c.leftIntrinsics, c.leftDistortion, leftRaw, first);
    LensLanes right(c.rightIntrinsics, c.rightDistortion, rightRaw, first);
    for (int step = 0; step < kSteps; ++step) {
      left.refine();
      right.refine();
    }
    left.write(leftUndistorted, first);
    right.write(rightUndistorted, first);
  }
}

}  // namespace algorithm
