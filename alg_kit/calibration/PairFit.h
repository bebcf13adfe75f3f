// Fits a camera pair to blobs that both cameras saw. The solver is Ceres' small one, which is a
// header alone; nothing of it is seen from here.
#pragma once

#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_kit/calibration/StereoFit.h>

#include <Eigen/Core>
#include <vector>

namespace calibration {

/// What is fitted, as small differences from a calibration.
///  0 to 2   rotation vector in the right camera's frame, radians: R' = exp(r) R
///  3 and 4  the translation's direction leans by so many radians (tangents) towards the axes of
///           `tangentsOf`; its length is kept, since pairs of rays do not show it
///  5 to 12  left fx, fy, cx, cy (pixels), k1 to k4
///  13 to 20 the right camera's
constexpr int kPoseParameters = 5;
constexpr int kAllParameters = 21;

/// Two unit vectors across the translation, as columns: as good as the right camera's y and z axis
/// where the cameras stand side by side.
Eigen::Matrix<double, 3, 2> tangentsOf(const Eigen::Vector3d& translation);

/// The calibration that differs by `parameters` (5 or 21); F is computed anew.
algorithm::StereoCalibration moved(const algorithm::StereoCalibration& calibration,
                                   const Eigen::VectorXd& parameters);

struct PairFitOptions {
  int parameters = kPoseParameters;  ///< or kAllParameters
  /// Standard deviations of what is believed before: the given values are right within them.
  /// 0 = nothing is believed of this parameter. As many as parameters, or none.
  Eigen::VectorXd believed;
};

struct PairFit {
  Eigen::VectorXd change;      ///< from the given calibration
  Eigen::MatrixXd covariance;  ///< of the parameters around the result
  double noise = 0;            ///< px, standard deviation of a coordinate, from the residuals
  std::size_t used = 0;        ///< pairs that had a say
  std::size_t outliers = 0;    ///< pairs that fit no common geometry
  std::size_t alone = 0;       ///< pairs set aside because a direction would have hung on them
  bool converged = false;
};

/// Minimises the Sampson distances under Tukey's weights, after graduated steps with Cauchy's from
/// wide to narrow (Black and Rangarajan, 1996), so that a wrong start and wrong partners do not
/// decide. The covariance is the sandwich estimate of such a fit (Huber, "Robust Statistics", 1981,
/// 7.6). Pairs with a leverage above 0.1 are set aside: what only a few of them say is not known.
/// Pairs outside the lens model are left out. The same input gives the same bits.
PairFit fitPairs(const algorithm::StereoCalibration& given, const std::vector<ObservedPair>& pairs,
                 const PairFitOptions& options = {});

/// Sampson distances of the pairs, pixels; not a number outside the lens model.
std::vector<double> sampsonDistances(const algorithm::StereoCalibration& calibration,
                                     const std::vector<ObservedPair>& pairs);

/// How the Sampson distance of one pair changes with the parameters.
Eigen::VectorXd sampsonGradient(const algorithm::StereoCalibration& calibration,
                                const ObservedPair& pair, int parameters);

}  // namespace calibration
