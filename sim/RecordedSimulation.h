// A simulated session, recorded: the simulator's packets through a library, with the truth.
#pragma once

#include <alg_factory/api/AlgBase.h>
#include <sim/Simulator.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace sim {

/// The fact that holds the simulated body, JSON as bodies::bodyText: its pose is that over its
/// markers' true places.
constexpr const char* kTrueBody = "true_body";

struct SessionOptions {
  int productType = 1;
  double seconds = 20;
  bool inertial = false;  ///< samples of objects 0 and 1 before every packet
  bool queries = true;    ///< ask for every object's pose after every frame
  int filterMode = 0;     ///< of SetFilterMode; -1 = it is not called
};

/// What the file says about itself, beside the numbers of the session and the simulator.
struct SessionDescription {
  std::string calibration = "built in";  ///< the file's name
  std::string motion = "moving";
  std::string body;                              ///< the file's name; empty = the built-in objects
  std::string bodyText;                          ///< the file's content
  std::vector<std::string> occlusions;           ///< as they were asked for
  std::map<std::string, std::string> rigErrors;  ///< likewise, by name: "bend", "drift", ...
};

/// What went in and what came back.
struct SessionCounts {
  std::int64_t frames = 0, packets = 0, lost = 0, corrupted = 0, wrongCheck = 0;
  std::int64_t blobs = 0, blobsCut = 0, calls = 0, blocks = 0;
  std::map<std::string, std::int64_t> messages;  ///< by text, without the newline at its end
};

/// Plain packets, or stamped ones: what feeds the pose filters that the queries read.
Framing framingFor(int productType);

/// Drives `library` as a host would, in simulated time, and records everything. The same options
/// and seed give the same content.
/// @param simulation  those of `simulator`
/// @param library     must not have been used before
/// @param path        of the file that is made; an existing one is replaced
/// @param progress    told the frames that are done and their number; may be empty
/// @throws recording::RecordingError if the file cannot be made or written
SessionCounts recordSimulation(
    const Simulator& simulator, const SimulatorOptions& simulation, const SessionOptions& options,
    const SessionDescription& description, algorithm::AlgBase& library, const std::string& path,
    const std::function<void(std::int64_t done, std::int64_t total)>& progress = {});

}  // namespace sim
