#include <alg_factory/stereo3d/Undistortion.h>

#include <cmath>

namespace algorithm {

namespace {

constexpr int kSteps = 10;
constexpr double kCentreRadius = 1e-8;  // closer points stay where they are

struct Lens {
  double fx, cx, fy, cy, k1, k2, k3, k4;
};

Lens lensOf(const double (&intrinsics)[9], const double (&distortion)[8]) {
  return {intrinsics[0], intrinsics[2], intrinsics[4], intrinsics[5],
          distortion[0], distortion[1], distortion[2], distortion[3]};
}

/// Points side by side, of any camera. The steps of one point wait for each other's divisions; in
/// plain loops over lanes, which the compiler turns into vector instructions, they overlap. Each
/// point's own operations stay the same and in the same order.
class LaneBlock {
 public:
  /// Takes a point on its way to `out`, which is written by the next `flush` at the latest.
  void add(const Lens& lens, const ImagePoint& raw, ImagePoint& out) {
    const std::size_t i = count_++;
    lens_[i] = &lens;
    out_[i] = &out;
    x_[i] = (raw.x - lens.cx) / lens.fx;
    y_[i] = (raw.y - lens.cy) / lens.fy;
    k1_[i] = lens.k1;
    k2_[i] = lens.k2;
    k3_[i] = lens.k3;
    k4_[i] = lens.k4;
    if (count_ == kLanes) flush();
  }

  void flush() {
    if (count_ == 0) return;
    for (std::size_t i = 0; i < kLanes; ++i) {
      theta_[i] = r_[i] = std::sqrt(x_[i] * x_[i] + y_[i] * y_[i]);
    }
    for (int step = 0; step < kSteps; ++step) {
      for (std::size_t i = 0; i < kLanes; ++i) {
        const double theta2 = theta_[i] * theta_[i];
        const double theta4 = theta2 * theta2;
        const double theta6 = theta4 * theta2;
        const double theta8 = theta4 * theta4;
        theta_[i] =
            r_[i] / (1.0 + k1_[i] * theta2 + k2_[i] * theta4 + k3_[i] * theta6 + k4_[i] * theta8);
      }
    }
    for (std::size_t i = 0; i < count_; ++i) {
      const Lens& lens = *lens_[i];
      const double scale = r_[i] > kCentreRadius ? std::tan(theta_[i]) / r_[i] : 1.0;
      *out_[i] = {x_[i] * scale * lens.fx + lens.cx, y_[i] * scale * lens.fy + lens.cy};
    }
    count_ = 0;
  }

 private:
  static constexpr std::size_t kLanes = 12;  // the largest product's markers, in both cameras
  using Lanes = double[kLanes];

  std::size_t count_ = 0;
  const Lens* lens_[kLanes];
  ImagePoint* out_[kLanes];
  // Lanes without a point go along with what they hold.
  Lanes x_ = {}, y_ = {}, k1_ = {}, k2_ = {}, k3_ = {}, k4_ = {};
  Lanes r_, theta_;
};

void addAll(const Lens& lens, const std::vector<ImagePoint>& raw,
            std::vector<ImagePoint>& undistorted, LaneBlock& block) {
  undistorted.resize(raw.size());
  for (std::size_t i = 0; i < raw.size(); ++i) block.add(lens, raw[i], undistorted[i]);
}

}  // namespace

void undistort(const double (&intrinsics)[9], const double (&distortion)[8],
               const std::vector<ImagePoint>& raw, std::vector<ImagePoint>& undistorted) {
  const Lens lens = lensOf(intrinsics, distortion);
  LaneBlock block;
  addAll(lens, raw, undistorted, block);
  block.flush();
}

void undistortBoth(const StereoCalibration& c, const std::vector<ImagePoint>& leftRaw,
                   const std::vector<ImagePoint>& rightRaw,
                   std::vector<ImagePoint>& leftUndistorted,
                   std::vector<ImagePoint>& rightUndistorted) {
  const Lens left = lensOf(c.leftIntrinsics, c.leftDistortion);
  const Lens right = lensOf(c.rightIntrinsics, c.rightDistortion);
  LaneBlock block;
  addAll(left, leftRaw, leftUndistorted, block);
  addAll(right, rightRaw, rightUndistorted, block);
  block.flush();
}

}  // namespace algorithm
