#include <alg_factory/stereo3d/Undistortion.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include <alg_factory/blob2d/Twin.h>

namespace algorithm {

namespace {

constexpr int kSteps = 10;
constexpr double kCentreRadius = 1e-8;  // closer points stay where they are

/// Points of two cameras side by side, the first half of one, the second of the other, so that the
/// steps of one point do not wait for the divisions of another. Each point's own operations stay
/// the same and in the same order.
class Lanes {
 public:
  static constexpr std::size_t kHalf = 6;  // the largest product's markers in one camera

  void setLens(std::size_t half, const double (&intrinsics)[9], const double (&distortion)[8]) {
    lenses_[half] = {twin(intrinsics[0]), twin(intrinsics[2]), twin(intrinsics[4]),
                     twin(intrinsics[5]), twin(distortion[0]), twin(distortion[1]),
                     twin(distortion[2]), twin(distortion[3])};
    for (std::size_t i = half * kTwins; i < (half + 1) * kTwins; ++i) {
      x_[i] = lenses_[half].cx;
      y_[i] = lenses_[half].cy;
    }
  }

  template <typename Point>
  void take(std::size_t half, const Point* points, std::size_t count) {
    const std::size_t first = half * kTwins;
    for (std::size_t i = 0; i + 1 < count; i += 2) {
      x_[first + i / 2] = Twin{points[i].x, points[i + 1].x};
      y_[first + i / 2] = Twin{points[i].y, points[i + 1].y};
    }
    if (count % 2 != 0) {
      x_[first + count / 2][0] = points[count - 1].x;
      y_[first + count / 2][0] = points[count - 1].y;
    }
  }

  /// Of at most `count` points in each half. Lanes without a point go along with what they hold:
  /// the image centre, or a point taken before.
  void findAngles(std::size_t count) {
    if (count > 4) {
      findAnglesOf<3>();
    } else if (count > 2) {
      findAnglesOf<2>();
    } else {
      findAnglesOf<1>();
    }
  }

  template <typename Point>
  void put(std::size_t half, Point* points, std::size_t count) const {
    const Lens& lens = lenses_[half];
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t lane = half * kHalf + i;
      const double r = r_[lane / 2][lane % 2];
      const double theta = theta_[lane / 2][lane % 2];
      const double scale = r > kCentreRadius ? std::tan(theta) / r : 1.0;
      points[i].x = x_[lane / 2][lane % 2] * scale * lens.fx[0] + lens.cx[0];
      points[i].y = y_[lane / 2][lane % 2] * scale * lens.fy[0] + lens.cy[0];
    }
  }

 private:
  static constexpr std::size_t kTwins = kHalf / 2;
  struct Lens {
    Twin fx, cx, fy, cy, k1, k2, k3, k4;
  };

  /// Of the first `kUsed` twins of each half.
  template <std::size_t kUsed>
  void findAnglesOf() {
    const auto forEach = [](auto step) {
      for (std::size_t n = 0; n < 2 * kUsed; ++n) step(n / kUsed, n / kUsed * kTwins + n % kUsed);
    };
    Twin(&r)[2 * kTwins] = r_;
    Twin theta[2 * kTwins];
    forEach([&](std::size_t half, std::size_t i) {
      const Lens& lens = lenses_[half];
      x_[i] = (x_[i] - lens.cx) / lens.fx;
      y_[i] = (y_[i] - lens.cy) / lens.fy;
      theta[i] = r[i] = root(x_[i] * x_[i] + y_[i] * y_[i]);
    });
    for (int step = 0; step < kSteps; ++step) {
      forEach([&](std::size_t half, std::size_t i) {
        const Lens& lens = lenses_[half];
        const Twin theta2 = theta[i] * theta[i];
        const Twin theta4 = theta2 * theta2;
        const Twin theta6 = theta4 * theta2;
        const Twin theta8 = theta4 * theta4;
        theta[i] = r[i] / (1.0 + lens.k1 * theta2 + lens.k2 * theta4 + lens.k3 * theta6 +
                           lens.k4 * theta8);
      });
    }
    forEach([&](std::size_t, std::size_t i) { theta_[i] = theta[i]; });
  }

  Lens lenses_[2];
  Twin x_[2 * kTwins], y_[2 * kTwins];
  Twin r_[2 * kTwins], theta_[2 * kTwins];
};

/// In place, as many at a time as there are lanes.
template <typename Point>
void undistortAll(Lanes& lanes, Point* first, std::size_t firstCount, Point* second,
                  std::size_t secondCount) {
  while (firstCount > 0 || secondCount > 0) {
    const std::size_t a = std::min(firstCount, Lanes::kHalf);
    const std::size_t b = std::min(secondCount, Lanes::kHalf);
    lanes.take(0, first, a);
    lanes.take(1, second, b);
    lanes.findAngles(std::max(a, b));
    lanes.put(0, first, a);
    lanes.put(1, second, b);
    first += a;
    second += b;
    firstCount -= a;
    secondCount -= b;
  }
}

}  // namespace

void undistort(const double (&intrinsics)[9], const double (&distortion)[8],
               const std::vector<ImagePoint>& raw, std::vector<ImagePoint>& undistorted) {
  undistorted = raw;
  Lanes lanes;
  lanes.setLens(0, intrinsics, distortion);
  lanes.setLens(1, intrinsics, distortion);
  const std::size_t half = raw.size() / 2;
  undistortAll(lanes, undistorted.data(), half, undistorted.data() + half, raw.size() - half);
}

void undistortBoth(const StereoCalibration& c, std::vector<Blob2DPoint>& left,
                   std::vector<Blob2DPoint>& right) {
  Lanes lanes;
  lanes.setLens(0, c.leftIntrinsics, c.leftDistortion);
  lanes.setLens(1, c.rightIntrinsics, c.rightDistortion);
  undistortAll(lanes, left.data(), left.size(), right.data(), right.size());
}

}  // namespace algorithm
