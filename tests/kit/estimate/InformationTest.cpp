#include <alg_kit/estimate/Information.h>
#include <gtest/gtest.h>

#include <Eigen/LU>

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

}  // namespace
}  // namespace estimate
