#pragma once

#include <alg_factory/api/AlgFactory.h>
#include <sim/Simulator.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace demo {

/// One object in one frame; positions as the library delivers them: x right, y up, z to the viewer.
struct ObjectSample {
  Eigen::Vector3d truth = Eigen::Vector3d::Zero();
  std::optional<Eigen::Vector3d> raw;       ///< from the delivered block
  std::optional<Eigen::Vector3d> filtered;  ///< from the pose query
};

/// What one run of one product type gave.
struct Run {
  std::string title;
  int objects = 0;
  int packets = 0;
  int blocks = 0;                                 ///< delivered
  double frameRate = 0;                           ///< Hz
  std::vector<double> microseconds;               ///< per InputStream call
  std::vector<std::vector<ObjectSample>> frames;  ///< by frame, by object
  std::map<std::string, int> logLines;            ///< by text
};

using Progress = std::function<void(int frame, int frames)>;

/// A host: creates the algorithm object, receives its blocks and messages, feeds it and queries it.
/// The library keeps the pointers to the sinks, so a host lives until the program ends.
class TrackingHost : private algorithm::DataSink, private algorithm::LogSink {
 public:
  TrackingHost();

  /// Configures the library for the simulator's product type, feeds `frameCount` frames and queries
  /// every object after each.
  /// @throws std::runtime_error if the library refuses a call
  Run run(const sim::Simulator& simulator, int frameCount, int filterMode,
          const Progress& progress);

 private:
  bool Deliver(const void* buffer, int offset, int length) override;
  bool Log(int level, const char* message) override;
  std::optional<Eigen::Vector3d> queryFiltered(int productType, int object);

  algorithm::AlgBase* alg_ = nullptr;
  Run run_;
  std::optional<algorithm::ResultBlock> block_;
};

}  // namespace demo
