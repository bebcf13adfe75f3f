// Whoever does the job, as the measuring programs see it: packets in, result blocks to a sink.
#pragma once

#include <alg_factory/api/AlgFactory.h>
#include <bench/Workload.h>

#include <memory>
#include <string>
#include <vector>

namespace bench {

/// What a host's sink does at least: it keeps the block.
class KeepingSink : public algorithm::DataSink, public algorithm::LogSink {
 public:
  bool Deliver(const void* buffer, int, int) override {
    block = *static_cast<const algorithm::ResultBlock*>(buffer);
    ++blocks;
    return true;
  }
  bool Log(int, const char*) override {
    ++logLines;
    return true;
  }

  algorithm::ResultBlock block;
  long blocks = 0;
  long logLines = 0;
};

class Contestant {
 public:
  virtual ~Contestant() = default;

  virtual std::string name() const = 0;

  /// Gets ready for a workload's rig, product type and framing.
  virtual void prepare(const Workload& load, int filterMode) = 0;

  virtual void input(const sim::Bytes& payload) = 0;

  /// The filtered position of an object; false when there is none.
  virtual bool filteredPosition(int object, double (&position)[3]) = 0;

  /// Plays the whole workload once.
  void play(const Workload& load) {
    for (const sim::Bytes& payload : load.payloads) input(payload);
  }

  KeepingSink sink;
};

/// The shared library, through the interface that hosts use.
std::unique_ptr<Contestant> makeLibrary();

/// The library first, then the peers that this build has (none where OpenCV is absent). The peers
/// play product type 2 with plain packets only.
std::vector<std::unique_ptr<Contestant>> makeContestants();

}  // namespace bench
