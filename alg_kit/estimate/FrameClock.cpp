#include <alg_kit/estimate/FrameClock.h>

#include <alg_factory/api/Constants.h>

#include <algorithm>
#include <cmath>

namespace estimate {
namespace {

constexpr double kMicrosecond = 1e-6;
constexpr double kLatest = 1;        // seconds back that are late and no restart
constexpr double kLongestGap = 600;  // seconds; a longer one is a restart
constexpr double kFollow = 0.1;      // share of the arrival's error that the phase takes over

}  // namespace

std::uint32_t stampOf(const unsigned char* payload) {
  std::uint32_t stamp = 0;
  for (int i = 0; i < algorithm::kStampSize; ++i)
    stamp |= static_cast<std::uint32_t>(payload[i]) << (8 * i);
  return stamp;
}

FrameClock::Tick FrameClock::stamped(std::uint32_t microseconds) {
  arrival_.reset();
  if (!begun_ || !stamp_) {
    stamp_ = microseconds;
    return begin();
  }
  // The difference of two stamps that wrap.
  const double elapsed = static_cast<std::int32_t>(microseconds - *stamp_) * kMicrosecond;
  if (elapsed <= 0 && elapsed >= -kLatest) return {Step::kLate, 0};
  stamp_ = microseconds;
  return elapsed < 0 || elapsed > kLongestGap ? begin() : forward(elapsed);
}

FrameClock::Tick FrameClock::plain(std::optional<double> arrival) {
  stamp_.reset();
  if (arrival && !std::isfinite(*arrival)) arrival.reset();
  if (!begun_ || !arrival || !arrival_) {
    arrival_ = arrival;
    return begun_ ? forward(period_) : begin();
  }
  // Packets queue up in the host and come in bursts: at least one period each.
  const double periods = std::max(1.0, std::round((*arrival - *arrival_) / period_));
  if (periods * period_ > kLongestGap) {
    arrival_ = arrival;
    return begin();
  }
  const double expected = *arrival_ + periods * period_;
  arrival_ = expected + kFollow * (*arrival - expected);
  return forward(periods * period_);
}

FrameClock::Tick FrameClock::forward(double elapsed) {
  now_ += elapsed;
  return {Step::kForward, elapsed};
}

FrameClock::Tick FrameClock::begin() {
  if (begun_) now_ += period_;
  begun_ = true;
  return {Step::kFirst, 0};
}

}  // namespace estimate
