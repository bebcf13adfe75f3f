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
  return estimator_ ? placeOf(estimator_->at(object)) : nowhere();
}

SmoothedPlaces::SmoothedPlaces(const recording::RecordingReader& reader, double frameRate)
    : entries_(reader.entries()), calls_(reader.callCount()) {
  options_.frameRate = frameRate;
}

Place SmoothedPlaces::at(std::int64_t call, int object) {
  while ((smoothed_.empty() || smoothed_.back().call < call) &&
         !(atEnd_ && !later_ && done_ >= window_.size()))
    next(call);
  const auto found =
      std::lower_bound(smoothed_.begin(), smoothed_.end(), call,
                       [](const Smoothed& packet, std::int64_t i) { return packet.call < i; });
  const auto at = static_cast<std::size_t>(object);
  if (found == smoothed_.end() || found->call != call || at >= found->places.size())
    return nowhere();
  return found->places[at];
}

/// @return false where the packets of this Init end
bool SmoothedPlaces::read() {
  session::Entry entry;
  while (!atEnd_ && !later_) {
    if (!entries_.next(entry)) {
      atEnd_ = true;
    } else if (entry.call.kind == CallKind::kInit) {
      later_ = std::move(entry.call);
    } else if (isPacket(entry.call) && init_) {
      window_.push_back(std::move(entry.call));
      return true;
    }
  }
  return false;
}

/// Goes on by one piece, which is smoothed if `call` may be in it.
void SmoothedPlaces::next(std::int64_t call) {
  while (window_.size() < done_ + kAtATime + kMargin && read()) {
  }
  if (done_ == window_.size()) {
    window_.clear();
    done_ = 0;
    init_ = std::move(later_);
    later_.reset();
    return;
  }
  const bool ends = window_.size() < done_ + kAtATime + kMargin;
  const std::size_t end = ends ? window_.size() : done_ + kAtATime;
  // Not more than their share of the recording up to here.
  const auto share = static_cast<double>(window_[done_].index) / static_cast<double>(calls_);
  if (window_[end - 1].index >= call && static_cast<double>(packets_) <= kMostPackets * share)
    smooth(done_, end);
  else
    smoothed_.assign(1, {window_[end - 1].index, {}});
  const std::size_t passed = end > kMargin ? end - kMargin : 0;
  window_.erase(window_.begin(), window_.begin() + static_cast<std::ptrdiff_t>(passed));
  done_ = end - passed;
}

void SmoothedPlaces::smooth(std::size_t first, std::size_t end) {
  packets_ += static_cast<std::int64_t>(end - first);
  smoothed_.clear();
  for (std::size_t i = first; i < end; ++i) smoothed_.push_back({window_[i].index, {}});
  auto smoother = madeFrom(*init_, [this](int type, const algorithm::StereoCalibration& c) {
    return std::make_unique<estimate::Smoother>(type, c, options_);
  });
  if (!smoother) return;
  std::vector<std::size_t> packetOf;  // by frame
  for (std::size_t i = 0; i < window_.size(); ++i) {
    const Call& call = window_[i];
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
