// The first-order distance of a pair of raw pixels from agreeing with a camera pair, through the
// fisheye lens. For any scalar type, so that derivatives can be carried along.
#pragma once

#include <Eigen/Core>
#include <cmath>

namespace calibration {

/// A ray of one camera: its direction (unit length) and how it turns with the pixel.
template <typename T>
struct Ray {
  Eigen::Matrix<T, 3, 1> direction;
  Eigen::Matrix<T, 3, 2> perPixel;  ///< d direction / d (u, v)
};

/// The angle theta that solves radius = theta (1 + k1 theta^2 + ... + k4 theta^8) by Newton steps
/// from `start`; not a number where the lens folds back before that radius.
inline double fisheyeAngle(double radius, const double* k) {
  double theta = radius;
  for (int step = 0; step < 30; ++step) {
    const double t2 = theta * theta;
    const double value = theta * (1 + t2 * (k[0] + t2 * (k[1] + t2 * (k[2] + t2 * k[3]))));
    const double slope = 1 + t2 * (3 * k[0] + t2 * (5 * k[1] + t2 * (7 * k[2] + t2 * 9 * k[3])));
    if (!(slope > 0)) return NAN;
    const double change = (value - radius) / slope;
    theta -= change;
    if (std::abs(change) < 1e-15) break;
  }
  return theta;
}

/// The number itself, of a double and of a number that carries its derivatives (ceres::Jet).
inline double plain(double value) {
  return value;
}
template <typename Jet>
auto plain(const Jet& value) -> decltype(value.a + 0.0) {
  return value.a;
}

/// The ray of a raw pixel by the equidistant fisheye model (Kannala and Brandt, 2006).
/// @param lens  fx, fy, cx, cy, k1 to k4
template <typename T>
Ray<T> rayOf(double u, double v, const T* lens) {
  using std::cos;
  using std::sin;
  using std::sqrt;
  const T x = (u - lens[2]) / lens[0];
  const T y = (v - lens[3]) / lens[1];
  const T square = x * x + y * y;
  const T* const k = lens + 4;
  Ray<T> ray;
  T perX[3], perY[3];  // d direction / d (x, y)
  if (plain(square) < 1e-20) {
    ray.direction << x, y, T(1);
    perX[0] = T(1), perX[1] = T(0), perX[2] = -x;
    perY[0] = T(0), perY[1] = T(1), perY[2] = -y;
  } else {
    const T radius = sqrt(square);
    const double plainK[4] = {plain(k[0]), plain(k[1]), plain(k[2]), plain(k[3])};
    // One more Newton step in T carries the derivatives, since the value no longer changes.
    T theta(fisheyeAngle(plain(radius), plainK));
    T slope;
    for (int step = 0; step < 2; ++step) {
      const T t2 = theta * theta;
      const T value = theta * (1.0 + t2 * (k[0] + t2 * (k[1] + t2 * (k[2] + t2 * k[3]))));
      slope = 1.0 + t2 * (3.0 * k[0] + t2 * (5.0 * k[1] + t2 * (7.0 * k[2] + t2 * 9.0 * k[3])));
      if (step == 0) theta -= (value - radius) / slope;
    }
    const T sine = sin(theta), cosine = cos(theta);
    const T scale = sine / radius;
    const T scalePerRadius = (cosine / slope - scale) / radius;
    ray.direction << scale * x, scale * y, cosine;
    const T common = scalePerRadius / radius;
    perX[0] = scale + common * x * x, perX[1] = common * x * y, perX[2] = -scale / slope * x;
    perY[0] = common * x * y, perY[1] = scale + common * y * y, perY[2] = -scale / slope * y;
  }
  for (int i = 0; i < 3; ++i) {
    ray.perPixel(i, 0) = perX[i] / lens[0];
    ray.perPixel(i, 1) = perY[i] / lens[1];
  }
  return ray;
}

/// The matrix of [t]x, the cross product with t from the left.
template <typename T>
Eigen::Matrix<T, 3, 3> crossMatrix(const Eigen::Matrix<T, 3, 1>& t) {
  Eigen::Matrix<T, 3, 3> cross;
  cross << T(0), -t[2], t[1], t[2], T(0), -t[0], -t[1], t[0], T(0);
  return cross;
}

/// How a Sampson distance changes with both rays.
struct PerRays {
  Ray<double> left, right;
};

/// Signed Sampson distance in raw pixels (Sampson 1982; Hartley and Zisserman, "Multiple View
/// Geometry", 2nd ed., 11.4.3): the epipolar constraint e = dR . E dL, divided by the length of its
/// gradient in the four pixel coordinates. To first order it is the distance by which the two
/// pixels together must move to agree, so that noise of s px in every coordinate gives it a
/// standard deviation of s px, wherever in the images the pair lies.
///
/// With g_L and g_R the gradients in the pixels of each camera, P_L and P_R how the rays turn with
/// them, and n the length of both, d = e / n and
///   dd/dE  = dR dL' / n - d / n^2 (dR (P_L g_L)' + (P_R g_R) dL')
///   dd/ddL = E' dR / n - d / n^2 E' P_R g_R      dd/dP_L = - d / n^2 E' dR g_L'
///   dd/ddR = E dL / n - d / n^2 E P_L g_L        dd/dP_R = - d / n^2 E dL g_R'
/// @param essential  E = [t]x R with the rotation R of the left frame into the right one and the
///                   direction t of the translation; its scale does not matter
/// @param perEssential, perRays  filled unless null; the second only with the first
inline double sampsonDistance(const Ray<double>& left, const Ray<double>& right,
                              const Eigen::Matrix3d& essential,
                              Eigen::Matrix3d* perEssential = nullptr, PerRays* perRays = nullptr) {
  const Eigen::Vector3d perRight = essential * left.direction;
  const Eigen::Vector3d perLeft = essential.transpose() * right.direction;
  const Eigen::Vector2d gradientLeft = left.perPixel.transpose() * perLeft;
  const Eigen::Vector2d gradientRight = right.perPixel.transpose() * perRight;
  const double square = gradientLeft.squaredNorm() + gradientRight.squaredNorm() + 1e-300;
  const double perConstraint = 1 / std::sqrt(square);
  const double distance = right.direction.dot(perRight) * perConstraint;
  if (perEssential == nullptr) return distance;
  const double perSquare = distance / square;
  const Eigen::Vector3d turnedLeft = perSquare * (left.perPixel * gradientLeft);
  const Eigen::Vector3d turnedRight = perSquare * (right.perPixel * gradientRight);
  const Eigen::Vector3d alongLeft = perConstraint * left.direction - turnedLeft;
  *perEssential =
      right.direction * alongLeft.transpose() - turnedRight * left.direction.transpose();
  if (perRays == nullptr) return distance;
  perRays->left.direction = perConstraint * perLeft - essential.transpose() * turnedRight;
  perRays->right.direction = essential * alongLeft;
  perRays->left.perPixel = -perSquare * (perLeft * gradientLeft.transpose());
  perRays->right.perPixel = -perSquare * (perRight * gradientRight.transpose());
  return distance;
}

}  // namespace calibration
