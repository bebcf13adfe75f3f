// Places of tests, written with the numbers that matter.
#pragma once

#include <alg_kit/analysis/TrackStatistics.h>

namespace testing_support {

inline analysis::Place at(double x, double y = 0, double z = 0) {
  return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
}

}  // namespace testing_support
