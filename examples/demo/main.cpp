// Drives the library with a simulated scene, compares what it delivers with the truth, prints a
// table and draws a picture.
#include <alg_kit/calibration/KalibrFile.h>
#include <examples/demo/DemoOptions.h>
#include <examples/demo/PathPicture.h>
#include <examples/demo/Summary.h>
#include <examples/demo/TrackingHost.h>
#include <sim/Simulator.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <optional>

#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

namespace {

constexpr double kMeasuredMotionDistance = 1700;  // mm, mean distance to the cameras

bool standardErrorIsTerminal() {
#if defined(_WIN32)
  return _isatty(2) != 0;
#else
  return isatty(STDERR_FILENO) != 0;
#endif
}

demo::Progress progressBar(const std::string& label) {
  if (!standardErrorIsTerminal()) return [](int, int) {};
  return [label](int frame, int frames) {
    if (frame % 90 == 0 || frame == frames)
      std::fprintf(stderr, "\r%s: %3d%%%s", label.c_str(), 100 * frame / frames,
                   frame == frames ? "\n" : "");
  };
}

sim::Scene sceneFor(int productType, const std::optional<sim::Trajectory>& trajectory,
                    std::uint64_t seed) {
  return trajectory ? sim::Scene::following(productType, *trajectory)
                    : sim::Scene::moving(productType, seed);
}

void runDemo(const demo::DemoOptions& options) {
  const rig::StereoRig rig = options.calibration.empty()
                                 ? rig::builtInRig()
                                 : calibration::readKalibrCameraChain(options.calibration);
  double seconds = options.seconds;
  std::optional<sim::Trajectory> trajectory;
  if (!options.trajectory.empty()) {
    trajectory = sim::Trajectory::readTum(options.trajectory)
                     .part(0, seconds)
                     .placedInFront(kMeasuredMotionDistance);
    seconds = std::min(seconds, trajectory->duration());
  }
  std::ofstream picture(options.picture);
  if (!picture) throw std::runtime_error(options.picture + ": cannot be written");

  sim::SimulatorOptions simulation;
  simulation.seed = options.seed;
  simulation.blobs.pixelNoise = options.noise;
  simulation.blobs.dropoutProbability = options.dropouts;
  simulation.blobs.splitProbability = options.splits;
  simulation.blobs.strayRate = options.strays;
  const int frames = std::max(1, static_cast<int>(seconds * simulation.frameRate));

  // The pose filters that a query reads are fed by one framing: product type 1 needs stamps.
  static demo::TrackingHost host;
  std::vector<demo::Run> runs;
  for (const int productType : {1, 2}) {
    simulation.framing = productType == 1 ? sim::Framing::kStamped : sim::Framing::kPlain;
    const sim::Simulator simulator(rig, sceneFor(productType, trajectory, options.seed),
                                   simulation);
    const std::string title = "Product type " + std::to_string(productType);
    runs.push_back(host.run(simulator, frames, options.filterMode, progressBar(title)));
    runs.back().title = title + (productType == 1 ? " (packets with stamps)" : " (plain packets)");
    if (runs.back().blocks == 0) throw std::runtime_error(title + ": no block was delivered");
  }

  std::cout << "Motion: " << (trajectory ? options.trajectory : "generated")
            << "; cameras: " << (options.calibration.empty() ? "built in" : options.calibration)
            << "; " << seconds << " s at " << simulation.frameRate << " Hz; seed " << options.seed
            << "\nPixel noise " << options.noise << ", dropouts " << options.dropouts
            << ", split blobs " << options.splits << ", stray blobs " << options.strays << "\n\n";
  demo::printSummary(std::cout, runs);

  demo::writePathPicture(picture, runs);
  picture.close();
  if (!picture) throw std::runtime_error(options.picture + ": writing failed");
  std::cout << "Picture of the paths: " << options.picture << "\n" << std::flush;
  if (!std::cout) throw std::runtime_error("writing the table failed");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const demo::DemoOptions options = demo::parseOptions(argc, argv);
    if (options.help) {
      std::cout << demo::helpText();
      return 0;
    }
    runDemo(options);
    return 0;
  } catch (const demo::UsageError& error) {
    std::cerr << "alg_demo: " << error.what() << "\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "alg_demo: " << error.what() << "\n";
    return 1;
  }
}
