// Any file as a measured motion: refused in one line, or it can be asked for poses at any time.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <fuzz/ScratchFile.h>
#include <sim/Trajectory.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzing::ScratchFile file("trajectory");
  file.write(data, size);
  try {
    const sim::Trajectory motion = sim::Trajectory::readTum(file.path());
    for (const double share : {-1.0, 0.0, 0.3, 1.0, 2.0}) motion.at(share * motion.duration());
    motion.part(0.1 * motion.duration(), 0.5 * motion.duration()).placedInFront(1000).at(0);
  } catch (const std::runtime_error& error) {
    if (std::string(error.what()).find('\n') != std::string::npos) {
      std::fprintf(stderr, "TrajectoryFuzz: a message of several lines: %s\n", error.what());
      std::abort();
    }
  }
  return 0;
}
