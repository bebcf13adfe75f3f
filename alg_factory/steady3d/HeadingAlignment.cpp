#include <alg_factory/steady3d/HeadingAlignment.h>

#include <algorithm>
#include <cmath>

namespace algorithm {

namespace {

constexpr float kSeamHeading = 160.0f;
constexpr float kMaxRoll = 10.0f;
constexpr float kMarkerSpacing = 68.0f;

float atanPolynomial(float t) {
  const float t2 = t * t;
  return (((8.9140005f - 2.5397246f * t2) * t2 - 18.667446f) * t2 + 57.283627f) * t;
}

void appendBounded(std::vector<float>& history, std::size_t bound, float value) {
  if (history.size() >= bound) history.erase(history.begin());
  history.push_back(value);
}

float stabilityScore(float spread) {
  if (spread < 2.0f) return 100.0f - 0.25f * spread;
  if (spread < 10.0f) return 95.0f - 1.78f * (spread - 2.0f);
  return 0.0f;
}

float headingScore(float mean) {
  const float a = std::fabs(mean);
  if (a < 10.0f) return 100.0f - a;
  if (a < 20.0f) return 90.0f - 2.0f * (a - 10.0f);
  if (a < 45.0f) return 70.0f - 3.0f * (a - 20.0f);
  return 0.0f;
}

float distanceScore(float pairDistance) {
  const float e = std::fabs(pairDistance - kMarkerSpacing);
  if (e < 2.0f) return 100.0f - 2.5f * e;
  if (e < 5.0f) return 95.0f - 5.0f * (e - 2.0f);
  return 0.0f;
}

}  // namespace

float atan2Deg(float y, float x) {
  const float ax = std::fabs(x);
  const float ay = std::fabs(y);
  float a =
      ax >= ay ? atanPolynomial(ay / (ax + 2e-16f)) : 90.0f - atanPolynomial(ax / (ay + 2e-16f));
  if (x < 0.0f) a = 180.0f - a;
  if (y < 0.0f) a = 360.0f - a;
  if (a >= 180.0f) a = a - 360.0f;
  return a;
}

float asinDeg(float v) {
  if (std::isnan(v)) return 0.0f;
  if (v >= 1.0f) return 90.0f;
  if (v <= -1.0f) return -90.0f;
  return std::asin(v) * 57.29578f;
}

float meanHeading(const std::vector<float>& headings) {
  constexpr float kDivisor = HeadingAlignment::kHeadings;
  const bool nearSeam =
      std::fabs(headings.back()) > kSeamHeading || std::fabs(headings.front()) > kSeamHeading;
  if (!nearSeam) {
    float mean = 0.0f;
    for (const float e : headings) mean += e / kDivisor;
    return mean;
  }
  float sum = 0.0f;
  for (const float e : headings) sum += e > 0.0f ? 180.0f - e : -(e + 180.0f);
  const float base = sum >= 0.0f ? 180.0f : -180.0f;
  return base - sum / kDivisor;
}

float alignmentScore(float mean, float spread, float pairDistance) {
  return headingScore(mean) * stabilityScore(spread) * distanceScore(pairDistance) * 100.0f / 1e8f;
}

HeadingAlignment::HeadingAlignment() {
  distanceHistory.reserve(kDistances);
  headingHistory.reserve(kHeadings);
}

void HeadingAlignment::addPair(const TaggedPoint& a, const TaggedPoint& b) {
  if (a.x == a.y || a.x == a.z || a.y == a.z) return;
  const bool inOrder = a.x < b.x;
  pointA = inOrder ? a : b;
  pointB = inOrder ? b : a;

  const float dx = a.x - b.x, dy = a.y - b.y, dz = a.z - b.z;
  pairDistance = std::sqrt(dx * dx + dy * dy + dz * dz);
  appendBounded(distanceHistory, kDistances, pairDistance);

  // In double, stored single: the C libraries' single-precision arctangents differ more.
  const double heading = -std::atan2(static_cast<double>(pointB.z - pointA.z),
                                     static_cast<double>(pointB.x - pointA.x)) *
                         57.295779513;
  appendBounded(headingHistory, kHeadings, static_cast<float>(heading));

  const float mean = meanHeading(headingHistory);
  float spread = 0.0f;
  for (const float e : headingHistory) spread = std::max(spread, std::fabs(e - mean));

  if (!(std::fabs(roll) < kMaxRoll)) return;
  hasResult = true;
  yawOffset = yaw - mean;
  score = alignmentScore(mean, spread, pairDistance);
}

void HeadingAlignment::setOrientation(const float* q) {
  std::copy_n(q, 4, orientation);
  roll = atan2Deg(2.0f * (q[1] * q[0] + q[2] * q[3]), 1.0f - 2.0f * (q[1] * q[1] + q[2] * q[2]));
  pitch = -asinDeg(2.0f * (q[0] * q[2] - q[3] * q[1]));
  yaw = -atan2Deg(2.0f * (q[3] * q[0] + q[2] * q[1]), 1.0f - 2.0f * (q[2] * q[2] + q[3] * q[3]));
  hasOrientation = true;
}

int HeadingAlignment::takeFlags() {
  const int status = hasResult ? 1 : 0;
  hasResult = false;
  hasOrientation = false;
  return status;
}

int HeadingAlignment::readAngles(float* out) {
  if (!hasOrientation) return -1;
  out[0] = yaw;
  out[1] = pitch;
  out[2] = roll;
  out[3] = yaw - yawOffset;
  out[4] = pairDistance;
  out[5] = score;
  return takeFlags();
}

int HeadingAlignment::readCorrectedOrientation(float* out) {
  if (!hasOrientation) return -1;
  const float(&q)[4] = orientation;
  const float half = yawOffset * 3.1415927f / 360.0f;
  const float c = std::cos(half);
  const float s = std::sin(half);
  out[0] = c * q[0] - s * q[2];
  out[1] = c * q[1] - s * q[3];
  out[2] = s * q[0] + c * q[2];
  out[3] = c * q[3] - s * q[1];
  return takeFlags();
}

}  // namespace algorithm
