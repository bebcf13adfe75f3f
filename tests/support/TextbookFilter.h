#pragma once

namespace testing_support {

/// The textbook Kalman recursion of one axis, written out for two states (position, rate) and a
/// measured position, at 90 Hz with process noise 1e-5. The axes of the pose filters do not mix, so
/// three of these are one pose filter.
class TextbookFilter {
 public:
  explicit TextbookFilter(double measurementNoise) : r_(measurementNoise) {}

  void start(double y) {
    position = y;
    rate = 0;
    a_ = b_ = d_ = 0;
  }

  void update(double y) {
    constexpr double kStep = 1.0 / 90;
    constexpr double kNoise = 1e-5;
    position += kStep * rate;
    // [a b; b d] <- A [a b; b d] A^T + Q with A = [1 dt; 0 1]
    a_ = a_ + 2 * kStep * b_ + kStep * kStep * d_ + kNoise;
    b_ = b_ + kStep * d_;
    d_ = d_ + kNoise;
    const double residual = y - position;
    const double gain = a_ / (a_ + r_), rateGain = b_ / (a_ + r_);
    position += gain * residual;
    rate += rateGain * residual;
    d_ -= rateGain * b_;
    a_ *= 1 - gain;
    b_ *= 1 - gain;
  }

  double position = 0, rate = 0;

 private:
  double r_;
  double a_ = 0, b_ = 0, d_ = 0;
};

}  // namespace testing_support
