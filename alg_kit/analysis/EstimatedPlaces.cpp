#include <alg_kit/analysis/EstimatedPlaces.h>

#include <alg_factory/api/Constants.h>
#include <alg_kit/estimate/Smoother.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace analysis {
namespace {

using session::Call;
using session::CallKind;

constexpr double kNanosecond = 1e-9;
constexpr std::size_t kAtATime = 2700;         // packets that are smoothed together ...
constexpr std::size_t kMargin = 180;           // ... and those on either side that help
constexpr double kMostPackets = 4 * kAtATime;  // that are smoothed at all

bool isPacket(const Call& call) {
  return call.kind == CallKind::kInputStream && algorithm::isPacketStream(call.type);
}

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

SmoothedPlaces::SmoothedPlaces(const recording::RecordingReader& reader, double frameRate)
    : reader_(reader), calls_(reader.callCount()) {
  options_.frameRate = frameRate;
}

void SmoothedPlaces::add(const Call& call) {
  if (call.kind == CallKind::kInit) {
    init_ = call;
    latest_.clear();
  } else if (isPacket(call) && init_) {
    latest_.push_back(call.index);
    if (latest_.size() > kMargin + 1) latest_.pop_front();
  }
}

Place SmoothedPlaces::at(int object) {
  if (latest_.empty()) return nowhere();
  const std::int64_t call = latest_.back();
  if (smoothed_.empty() || smoothed_.back().call < call) {
    // Not more than their share of the recording up to here.
    const auto share = static_cast<double>(call) / static_cast<double>(calls_);
    if (static_cast<double>(packets_) > kMostPackets * share) return nowhere();
    smooth();
  }
  const auto found =
      std::lower_bound(smoothed_.begin(), smoothed_.end(), call,
                       [](const Smoothed& packet, std::int64_t i) { return packet.call < i; });
  const auto at = static_cast<std::size_t>(object);
  if (found == smoothed_.end() || found->call != call || at >= found->places.size())
    return nowhere();
  return found->places[at];
}

/// The packets from the margin before the latest one to that behind its piece, of one Init.
std::vector<Call> SmoothedPlaces::readAhead() const {
  std::vector<Call> packets;
  auto entries = reader_.entries(latest_.front());
  for (session::Entry entry;
       packets.size() < latest_.size() - 1 + kAtATime + kMargin && entries.next(entry);) {
    if (entry.call.kind == CallKind::kInit) break;
    if (isPacket(entry.call)) packets.push_back(std::move(entry.call));
  }
  return packets;
}

/// The piece that begins with the latest packet.
void SmoothedPlaces::smooth() {
  const std::vector<Call> window = readAhead();
  const std::size_t first = latest_.size() - 1;
  const bool ends = window.size() < first + kAtATime + kMargin;
  const std::size_t end = ends ? window.size() : first + kAtATime;
  packets_ += static_cast<std::int64_t>(end - first);
  smoothed_.clear();
  for (std::size_t i = first; i < end; ++i) smoothed_.push_back({window[i].index, {}});
  auto smoother = madeFrom(*init_, [this](int type, const algorithm::StereoCalibration& c) {
    return std::make_unique<estimate::Smoother>(type, c, options_);
  });
  if (!smoother) return;
  std::vector<std::size_t> packetOf;  // by frame
  for (std::size_t i = 0; i < window.size(); ++i) {
    const Call& call = window[i];
    if (smoother->add(call.type, call.payload.data(), static_cast<int>(call.payload.size()),
                      arrivalOf(call)))
      packetOf.push_back(i);
  }
  const auto objects = static_cast<std::size_t>(algorithm::objectCount(init_->type));
  smoother->run([&](int object, std::size_t frame, const estimate::Estimate& estimate) {
    const std::size_t packet = packetOf[frame];
    if (packet < first || packet >= end) return;
    ObjectPlaces& places = smoothed_[packet - first].places;
    places.resize(objects, nowhere());
    places[static_cast<std::size_t>(object)] = placeOf(estimate);
  });
}

}  // namespace analysis
