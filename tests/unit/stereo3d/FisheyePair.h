#pragma once

#include <array>
#include <cmath>
#include <vector>

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <Eigen/LU>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/stereo3d/ImagePoint.h>
#include <alg_factory/stereo3d/StereoCalibration.h>

namespace testing_support {

/// The forward model of one camera: what the stage has to undo. Points are in the camera's frame.
struct FisheyeCamera {
  double fx = 500, fy = 500, cx = 0, cy = 0;
  std::array<double, 4> k = {};

  Eigen::Matrix3d matrix() const {
    return (Eigen::Matrix3d() << fx, 0, cx, 0, fy, cy, 0, 0, 1).finished();
  }

  double distortedRadius(double theta) const {
    double r = theta;
    for (int i = 0; i < 4; ++i) {
      r += k[static_cast<std::size_t>(i)] * std::pow(theta, 3 + 2 * i);
    }
    return r;
  }

  algorithm::ImagePoint pinhole(const Eigen::Vector3d& p) const {
    return {fx * p.x() / p.z() + cx, fy * p.y() / p.z() + cy};
  }

  algorithm::ImagePoint fisheye(const Eigen::Vector3d& p) const {
    const double theta = std::atan2(std::hypot(p.x(), p.y()), p.z());
    const double phi = std::atan2(p.y(), p.x());
    const double r = distortedRadius(theta);
    return {fx * r * std::cos(phi) + cx, fy * r * std::sin(phi) + cy};
  }
};

inline void storeByRows(const Eigen::Matrix3d& matrix, double (&values)[9]) {
  for (int i = 0; i < 9; ++i) values[i] = matrix(i / 3, i % 3);
}

/// Two cameras. World points are in the right camera's frame: right = rotation * left +
/// translation. The default is a rectified pair without distortion, 100 apart, the left camera at x
/// = -100.
struct FisheyePair {
  FisheyeCamera left, right;
  Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();
  Eigen::Vector3d translation = {-100, 0, 0};

  Eigen::Vector3d inLeftFrame(const Eigen::Vector3d& p) const {
    return rotation.transpose() * (p - translation);
  }

  /// Longuet-Higgins: with E = [T]x R, a left pixel p and its right partner q obey
  /// q^T K_R^-T E K_L^-1 p = 0.
  Eigen::Matrix3d fundamental() const {
    Eigen::Matrix3d cross;
    cross << 0, -translation.z(), translation.y(),  //
        translation.z(), 0, -translation.x(),       //
        -translation.y(), translation.x(), 0;
    return right.matrix().inverse().transpose() * cross * rotation * left.matrix().inverse();
  }

  algorithm::StereoCalibration calibration() const {
    algorithm::StereoCalibration c;
    storeByRows(left.matrix(), c.leftIntrinsics);
    storeByRows(right.matrix(), c.rightIntrinsics);
    storeByRows(rotation, c.rotation);
    storeByRows(fundamental(), c.fundamental);
    for (std::size_t i = 0; i < 4; ++i) {
      c.leftDistortion[i] = left.k[i];
      c.rightDistortion[i] = right.k[i];
    }
    for (int i = 0; i < 3; ++i) c.translation[i] = translation[i];
    return c;
  }
};

/// Two unlike cameras, turned towards each other, with all four coefficients of both lenses set.
inline FisheyePair unlikePair() {
  FisheyePair pair;
  pair.left = {410, 395, 322, 247, {0.02, -0.006, 0.003, -0.0008}};
  pair.right = {388, 402, 301, 233, {-0.01, 0.008, -0.004, 0.0006}};
  pair.rotation = (Eigen::AngleAxisd(0.15, Eigen::Vector3d::UnitY()) *
                   Eigen::AngleAxisd(-0.07, Eigen::Vector3d::UnitX()) *
                   Eigen::AngleAxisd(0.2, Eigen::Vector3d::UnitZ()))
                      .toRotationMatrix();
  pair.translation = {-95, 12, -7};
  return pair;
}

inline algorithm::Blob2DPoint blob(double x, double y, int diameter, int id) {
  algorithm::Blob2DPoint result;
  result.x = x;
  result.y = y;
  result.diameter = diameter;
  result.id = id;
  return result;
}

/// A blob that carries the line a x + b y + c = 0 of the other image.
inline algorithm::Blob2DPoint blobWithLine(double x, double y, double a, double b, double c,
                                           int diameter, int id = 0) {
  algorithm::Blob2DPoint result = blob(x, y, diameter, id);
  result.aux[0] = a;
  result.aux[1] = b;
  result.aux[2] = c;
  return result;
}

/// A blob of a rectified pair: its partner lies in the same image row.
inline algorithm::Blob2DPoint rowBlob(double x, double y, int diameter, int id = 0) {
  return blobWithLine(x, y, 0, 1, -y, diameter, id);
}

}  // namespace testing_support
