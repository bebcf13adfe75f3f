#pragma once

namespace algorithm {

/// A stage of the pipeline. By convention every stage also has three non-virtual operations:
/// `init` (given the product type), `configure` (binds the vectors between the stages and runs
/// `prepare`) and `setLogger`.
class BaseCV {
 public:
  virtual ~BaseCV() = default;

  /// Runs the stage once on its bound input and fills its bound output.
  virtual bool process() = 0;

  /// Builds the stage's internal storage; its result is the result of `configure`.
  virtual bool prepare() = 0;

 protected:
  BaseCV() = default;
  BaseCV(const BaseCV&) = default;
  BaseCV& operator=(const BaseCV&) = default;
};

}  // namespace algorithm
