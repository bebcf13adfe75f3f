#include <examples/demo/DemoOptions.h>

#include <charconv>
#include <cmath>
#include <string_view>

namespace demo {
namespace {

template <typename Number>
Number numberFrom(const std::string& option, const std::string& text, Number low, Number high) {
  Number value{};
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || parsed != end || !(value >= low && value <= high))
    throw UsageError(option + ": expected a number from " + std::to_string(low) + " to " +
                     std::to_string(high) + ", found '" + text + "'");
  return value;
}

}  // namespace

DemoOptions parseOptions(int argc, const char* const* argv) {
  DemoOptions options;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--help" || option == "-h") {
      options.help = true;
      return options;
    }
    const bool known = option == "--trajectory" || option == "--calibration" ||
                       option == "--picture" || option == "--seconds" || option == "--noise" ||
                       option == "--dropouts" || option == "--splits" || option == "--strays" ||
                       option == "--filter-mode" || option == "--seed";
    if (!known) throw UsageError("unknown option '" + option + "' (see --help)");
    if (i + 1 == argc) throw UsageError(option + ": expected a value, found none");
    const std::string value = argv[++i];
    if (value.empty()) throw UsageError(option + ": expected a value, found an empty one");
    if (option == "--trajectory") options.trajectory = value;
    if (option == "--calibration") options.calibration = value;
    if (option == "--picture") options.picture = value;
    if (option == "--seconds") options.seconds = numberFrom(option, value, 0.1, 3600.0);
    if (option == "--noise") options.noise = numberFrom(option, value, 0.0, 100.0);
    if (option == "--dropouts") options.dropouts = numberFrom(option, value, 0.0, 1.0);
    if (option == "--splits") options.splits = numberFrom(option, value, 0.0, 1.0);
    if (option == "--strays") options.strays = numberFrom(option, value, 0.0, 10.0);
    if (option == "--filter-mode") options.filterMode = numberFrom(option, value, 0, 1);
    if (option == "--seed")
      options.seed = numberFrom<std::uint64_t>(option, value, 0, ~std::uint64_t{0});
  }
  return options;
}

std::string helpText() {
  return R"(alg_demo: tracks a simulated scene with alg_factory and compares it with the truth.

Usage: alg_demo [options]

  --trajectory FILE   measured motion (lines of t tx ty tz qx qy qz qw; seconds, metres)
  --calibration FILE  the camera pair, as a Kalibr camera chain (equidistant model)
  --picture FILE      where the picture of true and tracked paths goes (demo.svg)
  --seconds S         length of each of the two runs (20)
  --noise PX          standard deviation of a blob's centre, pixels (0.02)
  --dropouts P        probability that a camera misses a marker in a frame (0.002)
  --splits P          probability that a blob comes in two halves (0.01)
  --strays N          mean number of blobs without a marker, per camera and frame (0.05)
  --filter-mode M     0 = small, 1 = large measurement noise in the pose filters (0)
  --seed N            of everything random (1)
  --help              this text

Example:
  alg_demo --trajectory room.tum --calibration camchain.yaml --picture room.svg
)";
}

}  // namespace demo
