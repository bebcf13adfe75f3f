#include <alg_factory/steady3d/TwoPointObject.h>

#include <algorithm>
#include <cmath>

namespace algorithm {

void TwoPointObject::forget() {
  guard_.forget();
  sawBoth_ = false;
}

void TwoPointObject::decideSide(const PointF& point, std::int32_t sideHint) {
  if (sideHint == 1) {
    side_ = PairSide::kFirst;
  } else if (sideHint == 2) {
    side_ = PairSide::kSecond;
  } else if (sawBoth_) {
    const bool firstIsNearer =
        distance(point, remembered_.first) < distance(point, remembered_.second);
    side_ = firstIsNearer ? PairSide::kFirst : PairSide::kSecond;
  }
}

PointF TwoPointObject::reconstruct(const PointF& visible) const {
  const PairSide partner = side_ == PairSide::kFirst ? PairSide::kSecond : PairSide::kFirst;
  const PointF offset = remembered_.at(partner) - remembered_.at(side_);
  return visible + 0.5f * offset;
}

PointF TwoPointObject::reconstructFrom(const PointF& visible, std::int32_t sideHint) {
  decideSide(visible, sideHint);
  rampCounter_ = 0;
  sawBoth_ = false;
  return reconstruct(visible);
}

PointF TwoPointObject::slideToMidpoint(const PointF& a, const PointF& b, std::int32_t sideHint) {
  const Pair pair = a.x < b.x ? Pair{a, b} : Pair{b, a};
  if (sideHint == 1) side_ = PairSide::kFirst;
  if (sideHint == 2) side_ = PairSide::kSecond;

  PointF position = 0.5f * (a + b);
  rampCounter_ = std::min(rampCounter_ + 1, kRampFrames);
  if (rampCounter_ < kRampFrames) {
    const float share = static_cast<float>(rampCounter_) / static_cast<float>(kRampFrames);
    position = (1.0f - share) * reconstruct(pair.at(side_)) + share * position;
  }
  remembered_ = pair;
  sawBoth_ = true;
  return position;
}

float bearingOf(const PointF& position) {
  const float ratio = std::fabs(position.x) / std::fabs(position.z);
  return static_cast<float>(std::atan(static_cast<double>(ratio)) * 57.29577951308232);
}

}  // namespace algorithm
