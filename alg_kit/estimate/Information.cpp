#include <alg_kit/estimate/Information.h>

#include <Eigen/LU>

namespace estimate {

using Eigen::Matrix3d;
using Eigen::Vector3d;

namespace {

/// One camera says nothing of the distance; a metre of deviation (in mm) is as good as nothing.
constexpr double kAlongTheRay = 1e-6;

}  // namespace

double raysMiss(const PositionInformation& information) {
  const Matrix3d covariance =
      information.determined ? information.covariance : Matrix3d(information.weight.inverse());
  return information.misfit - information.pull.dot(covariance * information.pull);
}

PositionInformation movedTo(PositionInformation information, const Vector3d& at) {
  const Vector3d step = at - information.at;
  const Vector3d change = information.weight * step;
  information.misfit += step.dot(change) - 2 * information.pull.dot(step);
  information.pull -= change;
  information.at = at;
  return information;
}

PositionInformation ofMiddle(PositionInformation marker, const Vector3d& offset,
                             const Vector3d& at) {
  marker.at += offset;
  return movedTo(marker, at);
}

PositionInformation blurred(const PositionInformation& information, const Matrix3d& covariance) {
  // By the matrix inversion lemma: one camera's weight has no inverse.
  const Matrix3d lost = (covariance.inverse() + information.weight).inverse();
  PositionInformation result = information;
  result.misfit -= information.pull.dot(lost * information.pull);
  result.pull -= information.weight * lost * information.pull;
  result.weight -= information.weight * lost * information.weight;
  determine(result);
  return result;
}

PositionInformation together(const PositionInformation& one, const PositionInformation& other) {
  PositionInformation result = movedTo(one, other.at);
  result.weight += other.weight;
  result.pull += other.pull;
  result.misfit += other.misfit;
  result.numbers += other.numbers;
  determine(result);
  return result;
}

MiddleAndOffset middleAndOffset(const PositionInformation& first,
                                const PositionInformation& second) {
  const auto covarianceOf = [](const PositionInformation& one) -> Matrix3d {
    if (one.determined) return one.covariance;
    return (one.weight + kAlongTheRay * Matrix3d::Identity()).inverse();
  };
  const Matrix3d covariance1 = covarianceOf(first), covariance2 = covarianceOf(second);
  const Vector3d place1 = first.at + covariance1 * first.pull;
  const Vector3d place2 = second.at + covariance2 * second.pull;
  MiddleAndOffset result;
  result.middle.at = 0.5 * (place1 + place2);
  result.offset.at = 0.5 * (place2 - place1);
  result.middle.covariance = result.offset.covariance = 0.25 * (covariance1 + covariance2);
  result.middle.determined = result.offset.determined = true;
  result.middle.weight = result.offset.weight = result.middle.covariance.inverse();
  result.middle.numbers = result.offset.numbers = first.numbers;
  return result;
}

namespace {

/// What remains of one's information where the other is known that well from elsewhere.
PositionInformation remaining(PositionInformation one, const PositionInformation& other,
                              const Matrix3d& cross, const Matrix3d& weightOfOther) {
  const Matrix3d covariance = (other.weight + weightOfOther).inverse();
  const Matrix3d share = cross * covariance;
  const Matrix3d lost = share * cross.transpose();
  one.weight -= 0.5 * (lost + lost.transpose());
  one.pull -= share * other.pull;
  one.misfit -= other.pull.dot(covariance * other.pull);
  determine(one);
  return one;
}

}  // namespace

PairInformation::PairInformation(const Vector3d& middle, const Vector3d& offset) {
  middle_.at = middle;
  offset_.at = offset;
}

void PairInformation::addMarker(int marker, const PositionInformation& information) {
  const double side = marker == 0 ? -1 : 1;
  const PositionInformation here = movedTo(information, middle_.at + side * offset_.at);
  middle_.pull += here.pull;
  offset_.pull += side * here.pull;
  cross_ += side * here.weight;
  for (PositionInformation* const one : {&middle_, &offset_}) {
    one->weight += here.weight;
    one->misfit += here.misfit;
    one->numbers += here.numbers;
  }
}

void PairInformation::addOffset(const PositionInformation& information) {
  const PositionInformation here = movedTo(information, offset_.at);
  offset_.weight += here.weight;
  offset_.pull += here.pull;
  for (PositionInformation* const one : {&middle_, &offset_}) {
    one->misfit += here.misfit;
    one->numbers += here.numbers;
  }
}

PositionInformation PairInformation::ofMiddle() const {
  return remaining(middle_, offset_, cross_, kAlongTheRay * Matrix3d::Identity());
}

PositionInformation PairInformation::ofOffset() const {
  return remaining(offset_, middle_, cross_, kAlongTheRay * Matrix3d::Identity());
}

PositionInformation PairInformation::ofMiddle(const Matrix3d& offset) const {
  return remaining(middle_, offset_, cross_, offset.inverse());
}

}  // namespace estimate
