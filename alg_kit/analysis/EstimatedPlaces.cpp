#include <alg_kit/analysis/EstimatedPlaces.h>

#include <alg_factory/api/Constants.h>
#include <alg_kit/estimate/Smoother.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <utility>

namespace analysis {
namespace {

using session::Call;
using session::CallKind;

constexpr double kNanosecond = 1e-9;
constexpr std::size_t kAtATime = 2700;         // packets of a piece ...
constexpr std::size_t kMargin = 180;           // ... and those on either side that help
constexpr double kMostPackets = 4 * kAtATime;  // that are estimated at all
static_assert(Estimation::kDelay == kAtATime + kMargin);

/// @param make  gets product type and calibration; may throw std::invalid_argument
template <typename Make>
auto madeFrom(const Call& init, Make make) -> decltype(make(0, algorithm::StereoCalibration())) {
  algorithm::StereoCalibration calibration;
  if (!algorithm::isProductType(init.type) || init.payload.size() != sizeof calibration) return {};
  std::memcpy(&calibration, init.payload.data(), sizeof calibration);
  try {
    return make(init.type, calibration);
  } catch (const std::invalid_argument&) {
    return {};
  }
}

double arrivalOf(const Call& call) {
  return static_cast<double>(call.startNs) * kNanosecond;
}

Place placeOf(const estimate::Estimate& estimate) {
  if (estimate.source == estimate::Source::kNone) return nowhere();
  return {static_cast<float>(estimate.position[0]), static_cast<float>(estimate.position[1]),
          static_cast<float>(estimate.position[2])};
}

}  // namespace

void LivePlaces::add(const Call& call) {
  if (call.kind == CallKind::kInit)
    estimator_ = madeFrom(call, [this](int type, const algorithm::StereoCalibration& calibration) {
      return std::make_unique<estimate::Estimator>(type, calibration, options_);
    });
  else if (isPacket(call) && estimator_)
    estimator_->feed(call.type, call.payload.data(), static_cast<int>(call.payload.size()),
                     arrivalOf(call));
}

Place LivePlaces::at(int object) const {
  return placeOf(estimateOf(object));
}

estimate::Estimate LivePlaces::estimateOf(int object) const {
  return estimator_ ? estimator_->at(object) : estimate::Estimate();
}

/// A piece in the making.
struct Estimation::Window {
  Shared init;
  std::vector<Shared> packets;  ///< of one Init, with those on either side
  std::size_t first = 0;        ///< of the piece
  std::promise<Piece> promise;
  std::shared_future<Piece> piece = promise.get_future().share();

  std::size_t end() const { return std::min(packets.size(), first + kAtATime); }
  bool isFull() const { return packets.size() == first + kAtATime + kMargin; }
};

/// Makes pieces out of windows, in order.
class Estimation::Work {
 public:
  explicit Work(double frameRate) : live_(frameRate) { options_.frameRate = frameRate; }

  void run(Window& window) noexcept {
    try {
      Piece piece(window.end() - window.first);
      addLive(window, piece);
      addSmoothed(window, piece);
      window.promise.set_value(std::move(piece));
    } catch (...) {
      window.promise.set_exception(std::current_exception());
    }
  }

 private:
  static std::size_t objectsOf(const Window& window) {
    return static_cast<std::size_t>(algorithm::objectCount(window.init->type));
  }

  /// The estimator goes on from piece to piece; what lies between them it never sees.
  void addLive(const Window& window, Piece& piece) {
    if (init_ != window.init) live_.add(*(init_ = window.init));
    for (std::size_t i = 0; i < window.end(); ++i) {
      const Call& call = *window.packets[i];
      if (call.index <= latest_) continue;
      live_.add(call);
      latest_ = call.index;
      if (i < window.first) continue;
      ObjectPlaces& places = piece[i - window.first].live;
      for (std::size_t object = 0; object < objectsOf(window); ++object)
        places.push_back(live_.at(static_cast<int>(object)));
    }
  }

  void addSmoothed(const Window& window, Piece& piece) const {
    auto smoother =
        madeFrom(*window.init, [this](int type, const algorithm::StereoCalibration& calibration) {
          return std::make_unique<estimate::Smoother>(type, calibration, options_);
        });
    if (!smoother) return;
    for (EstimatedPlaces& places : piece) places.smoothed.resize(objectsOf(window), nowhere());
    std::vector<std::size_t> packetOf;  // by frame
    for (std::size_t i = 0; i < window.packets.size(); ++i) {
      const Call& call = *window.packets[i];
      if (smoother->add(call.type, call.payload.data(), static_cast<int>(call.payload.size()),
                        arrivalOf(call)))
        packetOf.push_back(i);
    }
    smoother->run([&](int object, std::size_t frame, const estimate::Estimate& estimate) {
      const std::size_t packet = packetOf[frame];
      if (packet < window.first || packet >= window.end()) return;
      piece[packet - window.first].smoothed[static_cast<std::size_t>(object)] = placeOf(estimate);
    });
  }

  estimate::EstimatorOptions options_;
  LivePlaces live_;
  Shared init_;               ///< that `live_` had last ...
  std::int64_t latest_ = -1;  ///< ... and the packet
};

bool Estimation::Packet::isThere() const {
  return piece.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

Estimation::Estimation(std::int64_t calls, double frameRate, SideThread& thread)
    : calls_(calls), thread_(thread), work_(std::make_shared<Work>(frameRate)) {}

Estimation::~Estimation() = default;

void Estimation::add(const Call& call) {
  if (call.kind == CallKind::kInit) {
    finish();
    init_ = std::make_shared<Call>(call);
    latest_.clear();
  }
  if (!isPacket(call) || !init_) return;
  latest_.push_back(std::make_shared<Call>(call));
  if (latest_.size() > kMargin + 1) latest_.pop_front();
  for (const auto& window : windows_) {
    window->packets.push_back(latest_.back());
    if (window->packets.size() == window->end()) ++packets_;
  }
  if (!windows_.empty() && windows_.front()->isFull()) complete();
}

std::optional<Estimation::Packet> Estimation::want() {
  if (latest_.empty()) return std::nullopt;
  if (windows_.empty() || windows_.back()->packets.size() > windows_.back()->end()) {
    const auto share = static_cast<double>(latest_.back()->index) / static_cast<double>(calls_);
    if (static_cast<double>(packets_) > kMostPackets * share) return std::nullopt;
    const auto window = windows_.emplace_back(std::make_shared<Window>());
    window->init = init_;
    window->packets.assign(latest_.begin(), latest_.end());
    window->first = latest_.size() - 1;
    ++packets_;
  }
  const Window& window = *windows_.back();
  return Packet{window.piece, window.packets.size() - 1 - window.first};
}

void Estimation::finish() {
  while (!windows_.empty()) complete();
}

/// The oldest window is handed over.
void Estimation::complete() {
  thread_.run([work = work_, window = windows_.front()] { work->run(*window); });
  windows_.pop_front();
}

}  // namespace analysis
