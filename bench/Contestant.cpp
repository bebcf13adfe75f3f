#include <bench/Contestant.h>

#include <cmath>
#include <stdexcept>

#ifdef BENCH_HAS_PEERS
#include <bench/peers/Peer.h>
#endif

namespace bench {

namespace {

class Library : public Contestant {
 public:
  Library() {
    alg_->SetLogCallback(&sink);
    alg_->SetDataCallback(&sink);
  }

  std::string name() const override { return "alg_factory"; }

  void prepare(const Workload& load, int filterMode) override {
    streamType_ = load.streamType;
    const auto* config = reinterpret_cast<const unsigned char*>(&load.rig.calibration);
    if (!alg_->Init(load.productType, config, 0) || !alg_->SetFilterMode(0, filterMode, nullptr)) {
      throw std::runtime_error("the library refused its configuration");
    }
  }

  void input(const sim::Bytes& payload) override {
    alg_->InputStream(streamType_, payload.data(), 0, static_cast<int>(payload.size()));
  }

  bool filteredPosition(int object, double (&position)[3]) override {
    algorithm::PoseAnswer answer;
    if (!alg_->HandleEvent(object, nullptr, &answer) || answer.id == -1) return false;
    for (int i = 0; i < 3; ++i) position[i] = static_cast<double>(answer.filtered[i]);
    return true;
  }

 private:
  algorithm::AlgBase* const alg_ = algorithm::AlgFactory::CreateALG(2);
  int streamType_ = 0;
};

#ifdef BENCH_HAS_PEERS
class PeerContestant : public Contestant {
 public:
  using Make = std::unique_ptr<peers::Peer> (*)(const algorithm::StereoCalibration&,
                                                algorithm::DataSink&, algorithm::LogSink&);
  PeerContestant(std::string name, Make make) : name_(std::move(name)), make_(make) {}

  std::string name() const override { return name_; }

  void prepare(const Workload& load, int filterMode) override {
    if (load.productType != 2 || load.streamType != 0 || filterMode != 0) {
      throw std::runtime_error(name_ + " plays product type 2, stream type 0, mode 0 only");
    }
    peer_ = make_(load.rig.calibration, sink, sink);
  }

  void input(const sim::Bytes& payload) override {
    peer_->inputPacket(payload.data(), payload.size());
  }

  bool filteredPosition(int object, double (&position)[3]) override {
    return peer_->filteredPosition(object, position);
  }

 private:
  std::string name_;
  Make make_;
  std::unique_ptr<peers::Peer> peer_;
};
#endif

}  // namespace

std::unique_ptr<Contestant> makeLibrary() {
  return std::make_unique<Library>();
}

std::vector<std::unique_ptr<Contestant>> makeContestants() {
  std::vector<std::unique_ptr<Contestant>> contestants;
  contestants.push_back(makeLibrary());
#ifdef BENCH_HAS_PEERS
  contestants.push_back(
      std::make_unique<PeerContestant>("P1: OpenCV throughout", &peers::makeOpenCvPeer));
  contestants.push_back(
      std::make_unique<PeerContestant>("P2: OpenCV, Eigen filters", &peers::makeEigenFilterPeer));
#endif
  return contestants;
}

}  // namespace bench
