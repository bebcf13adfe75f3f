#include <alg_kit/estimate/EstimatingAlg.h>

#include <cstring>
#include <exception>

namespace estimate {
namespace {

constexpr double kNanosecond = 1e-9;

}  // namespace

void EstimatingSink::take(const session::Unit& unit) noexcept {
  for (std::size_t i = 0; i < unit.used; ++i) try {
      takeEntry(unit.entries[i]);
    } catch (const std::exception&) {
      // A calibration that cannot be worked with, or no memory: there is nothing to ask.
      const std::lock_guard<std::mutex> lock(mutex_);
      estimator_.reset();
    }
}

void EstimatingSink::takeEntry(const session::Entry& entry) {
  const session::Call& call = entry.call;
  if (call.returned.value_or(0) == 0) return;
  if (call.kind == session::CallKind::kInit) {
    algorithm::StereoCalibration calibration;
    std::shared_ptr<Estimator> fresh;
    if (algorithm::isProductType(call.type) && call.payload.size() == sizeof calibration) {
      std::memcpy(&calibration, call.payload.data(), sizeof calibration);
      fresh = std::make_shared<Estimator>(call.type, calibration, options_);
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    estimator_ = fresh;
  } else if (call.kind == session::CallKind::kInputStream && estimator_ != nullptr) {
    // Only this thread replaces the pointer.
    estimator_->feed(call.type, call.payload.data(), static_cast<int>(call.payload.size()),
                     static_cast<double>(call.startNs) * kNanosecond);
  }
}

std::shared_ptr<const Estimator> EstimatingSink::current() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return estimator_;
}

Estimate EstimatingSink::ahead(int object, double seconds) const {
  const auto estimator = current();
  return estimator ? estimator->ahead(object, seconds) : Estimate();
}

Verdict EstimatingSink::verdict(int object) const {
  const auto estimator = current();
  return estimator ? estimator->verdict(object) : Verdict();
}

EstimatingAlg::EstimatingAlg(algorithm::AlgBase* alg, const EstimatorOptions& options)
    : TapAlg(alg), sink_(options) {
  add(sink_);
}

EstimatingAlg::~EstimatingAlg() {
  remove(sink_);
}

}  // namespace estimate
