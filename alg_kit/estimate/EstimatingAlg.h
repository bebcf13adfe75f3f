#pragma once

#include <alg_factory/api/Constants.h>
#include <alg_kit/estimate/Estimator.h>
#include <alg_kit/session/TapAlg.h>

#include <memory>
#include <mutex>

namespace estimate {

/// Estimates from what a tap hands on; a host that has a tap (a recorder) adds it there. Every
/// successful Init begins anew.
class EstimatingSink final : public session::UnitSink {
 public:
  explicit EstimatingSink(const EstimatorOptions& options = {}) : options_(options) {}

  void take(const session::Unit& unit) noexcept override;

  /// As Estimator's, on any thread; kNone before Init, and after one whose calibration cannot be
  /// worked with.
  Estimate at(int object) const { return ahead(object, 0); }
  Estimate ahead(int object, double seconds) const;
  Verdict verdict(int object) const;

 private:
  void takeEntry(const session::Entry& entry);
  std::shared_ptr<const Estimator> current() const;

  const EstimatorOptions options_;
  mutable std::mutex mutex_;  ///< of the pointer alone
  std::shared_ptr<Estimator> estimator_;
};

/// An algorithm object with an estimator beside it: every operation stays the library's, byte by
/// byte.
///
///     estimate::EstimatingAlg alg(algorithm::AlgFactory::CreateALG(0));
///     ...
///     const estimate::Estimate hand = alg.ahead(0, 0.02);  // where it will be in 20 ms
class EstimatingAlg final : public session::TapAlg {
 public:
  /// @param alg  not owned; used until this object's end
  /// @throws std::invalid_argument if `alg` is null
  explicit EstimatingAlg(algorithm::AlgBase* alg, const EstimatorOptions& options = {});
  ~EstimatingAlg() override;

  Estimate at(int object) const { return sink_.at(object); }
  Estimate ahead(int object, double seconds) const { return sink_.ahead(object, seconds); }
  Verdict verdict(int object) const { return sink_.verdict(object); }

 private:
  EstimatingSink sink_;
};

}  // namespace estimate
