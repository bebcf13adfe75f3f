#pragma once

#include <alg_kit/analysis/Columns.h>
#include <alg_kit/analysis/Distribution.h>
#include <alg_kit/analysis/ReportCurves.h>
#include <alg_kit/analysis/ReportNumbers.h>
#include <alg_kit/bodies/BodyFilter.h>
#include <alg_kit/session/Session.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace analysis {

/// Follows one body live, as `algtrack body pose` does, and gathers how well that went.
class BodyTally {
 public:
  /// The envelopes that a body has in the columns.
  static constexpr std::size_t kEnvelopes = 4;

  /// @param first  its first envelope in the columns
  /// @param noise  px, of blob centres
  BodyTally(const bodies::Body& body, std::size_t first, double noise);

  /// Every frame in order, whether it is reported or not.
  void feed(const bodies::BodyFrame& frame, const estimate::PixelEquations& cameras);

  /// The packet is reported: the columns are at it.
  /// @param sawFrame  it brought the frame that was fed last; else it could not be used
  /// @param truth     of its markers; empty = not known
  void add(bool sawFrame, const std::vector<session::TruthRow>& truth, Columns& columns);

  BodyNumbers numbers() const;
  BodyCurves curves(const Columns& columns) const;

 private:
  int visibleIn(const bodies::BodyFrame& frame) const;
  void addErrors(const bodies::RigidMotion& motion, const std::vector<session::TruthRow>& truth,
                 Columns& columns);

  bodies::Body body_;
  bodies::BodyFilter filter_;
  std::size_t first_;
  double noise_;
  int visible_ = 0;  ///< markers that a camera saw in the latest frame
  BodyNumbers numbers_;
  RunningDistribution positionError_, turnError_, residual_, markers_;
};

}  // namespace analysis
