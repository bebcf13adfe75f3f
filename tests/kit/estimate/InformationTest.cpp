#include <alg_kit/estimate/Information.h>
#include <gtest/gtest.h>

#include <Eigen/LU>
#include <Eigen/QR>

namespace estimate {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

PositionInformation of(const Vector3d& place, const Matrix3d& covariance, const Vector3d& at) {
  PositionInformation result;
  result.at = place;
  result.weight = covariance.inverse();
  result.numbers = 3;
  return movedTo(result, at);
}

Matrix3d someCovariance(double size) {
  Matrix3d result = Vector3d(1, 2, 9).asDiagonal();
  result(0, 2) = result(2, 0) = 1.5;
  return size * result;
}

TEST(Information, OfWhatIsDisplacedHasTheSumOfTheCovariances) {
  const Vector3d place(1, 2, 1500), at(3, 1, 1495);
  const Matrix3d noise = someCovariance(1), displacement = someCovariance(3).reverse();
  const PositionInformation found = blurred(of(place, noise, at), displacement),
                            expected = of(place, noise + displacement, at);
  EXPECT_LT((found.weight - expected.weight).norm(), 1e-12);
  EXPECT_LT((found.pull - expected.pull).norm(), 1e-12);
  EXPECT_NEAR(found.misfit, expected.misfit, 1e-12);
}

TEST(Information, TogetherIsTheWeightedMean) {
  const Vector3d first(1, 2, 1500), second(2, 0, 1504);
  const Matrix3d a = someCovariance(1), b = someCovariance(2).reverse();
  const PositionInformation found =
      together(of(first, a, Vector3d(0, 0, 1490)), of(second, b, second));
  const Matrix3d covariance = (a.inverse() + b.inverse()).inverse();
  const Vector3d mean = covariance * (a.inverse() * first + b.inverse() * second);
  ASSERT_TRUE(found.determined);
  EXPECT_LT((found.covariance - covariance).norm(), 1e-12);
  EXPECT_LT((found.at + found.covariance * found.pull - mean).norm(), 1e-9);
  const Vector3d apart = first - second;
  EXPECT_NEAR(raysMiss(found), apart.dot((a + b).inverse() * apart), 1e-9);
  EXPECT_EQ(found.numbers, 6);
}

/// Equations J x = r of a marker's distance x from `at`, with unit noise.
PositionInformation ofRows(const Eigen::Matrix<double, Eigen::Dynamic, 3>& rows,
                           const Eigen::VectorXd& values, const Vector3d& at) {
  PositionInformation result;
  result.at = at;
  result.weight = rows.transpose() * rows;
  result.pull = rows.transpose() * values;
  result.misfit = values.squaredNorm();
  result.numbers = static_cast<int>(values.size());
  return result;
}

// Both cameras saw the first marker, the right one the second too. The same by least squares over
// middle and offset at once; the one that is known from elsewhere has three equations more.
TEST(Information, OfAPairIsThatOfLeastSquaresOverMiddleAndOffset) {
  const Vector3d middle(10, 20, 1500), offset(30, -5, 12);
  Eigen::Matrix<double, Eigen::Dynamic, 3> first(4, 3), second(2, 3);
  first << 0.25, 0.01, -0.04, 0.02, 0.24, -0.01, 0.26, 0.0, 0.03, 0.01, 0.25, -0.02;
  second << 0.25, 0.02, -0.05, 0.0, 0.26, 0.01;
  Eigen::VectorXd firstValues(4), secondValues(2);
  firstValues << 0.3, -0.2, 0.5, 0.1;
  secondValues << -0.4, 0.2;
  PairInformation pair(middle, offset);
  pair.addMarker(0, ofRows(first, firstValues, middle - offset));
  pair.addMarker(1, ofRows(second, secondValues, middle + offset));

  const auto expect = [&](const PositionInformation& found, int block, double deviation) {
    Eigen::Matrix<double, 9, 6> rows = Eigen::Matrix<double, 9, 6>::Zero();
    rows.block(0, 0, 4, 3) = first;
    rows.block(0, 3, 4, 3) = -first;
    rows.block(4, 0, 2, 3) = rows.block(4, 3, 2, 3) = second;
    rows.block(6, 3 - block, 3, 3) = Matrix3d::Identity() / deviation;
    Eigen::Matrix<double, 9, 1> values;
    values << firstValues, secondValues, Vector3d::Zero();
    const Eigen::Matrix<double, 6, 1> solution = rows.colPivHouseholderQr().solve(values);
    const Eigen::Matrix<double, 6, 6> covariance = (rows.transpose() * rows).inverse();
    const Matrix3d expected = covariance.block(block, block, 3, 3);
    EXPECT_LT((found.weight * expected - Matrix3d::Identity()).norm(), 1e-5);
    const Vector3d place = found.at + expected * found.pull;
    EXPECT_LT((place - (block == 0 ? middle : offset) - solution.segment(block, 3)).norm(), 1e-4);
    EXPECT_NEAR(raysMiss(found), (rows * solution - values).squaredNorm(), 1e-6);
  };
  expect(pair.ofMiddle(Matrix3d::Identity() * 4), 0, 2);
  expect(pair.ofMiddle(), 0, 1000);
  expect(pair.ofOffset(), 3, 1000);
}

// 3 mm beyond where it was linearised, known to 0.5 mm: the middle is as far from the marker.
TEST(Information, OfAPairTakesWhatIsSaidOfTheOffset) {
  const Vector3d middle(0, 0, 1000), offset(0, 0, 30), further(0, 0, 33);
  PairInformation pair(middle, offset);
  pair.addMarker(0, of(middle - offset, 0.04 * Matrix3d::Identity(), middle - offset));
  pair.addOffset(of(further, 0.25 * Matrix3d::Identity(), further));
  const PositionInformation found = pair.ofMiddle(1e6 * Matrix3d::Identity());
  ASSERT_TRUE(found.determined);
  EXPECT_LT((found.covariance - 0.29 * Matrix3d::Identity()).norm(), 1e-5);
  EXPECT_LT((found.at + found.covariance * found.pull - Vector3d(0, 0, 1003)).norm(), 1e-4);
}

}  // namespace
}  // namespace estimate
