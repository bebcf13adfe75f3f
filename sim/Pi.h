// The circle, for what is simulated.
#pragma once

namespace sim {

constexpr double kPi = 3.141592653589793;

}  // namespace sim
