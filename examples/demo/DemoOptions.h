#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace demo {

struct DemoOptions {
  std::string trajectory;   ///< empty = generated motion
  std::string calibration;  ///< empty = the built-in rig
  std::string picture = "demo.svg";
  double seconds = 20;
  double noise = 0.02;      ///< px
  double dropouts = 0.002;  ///< per marker, camera and frame
  double splits = 0.01;     ///< per marker, camera and frame
  double strays = 0.05;     ///< per camera and frame
  int filterMode = 0;
  std::uint64_t seed = 1;
  bool help = false;
};

/// A command line that cannot be used.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// @throws UsageError, in one line
DemoOptions parseOptions(int argc, const char* const* argv);

/// The text of --help.
std::string helpText();

}  // namespace demo
