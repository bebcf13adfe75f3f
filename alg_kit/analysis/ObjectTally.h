#pragma once

#include <alg_factory/service/PoseAnswer.h>
#include <alg_kit/analysis/Columns.h>
#include <alg_kit/analysis/ReportCurves.h>
#include <alg_kit/analysis/ReportNumbers.h>
#include <alg_kit/analysis/ThinnedPath.h>
#include <alg_kit/analysis/TrackStatistics.h>
#include <alg_kit/analysis/TruthTrack.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

namespace analysis {

/// What one packet said of one object. Positions are as delivered, in mm (the unit of the
/// calibration's translation).
struct ObjectRow {
  Presence presence = Presence::kNoSuchObject;
  Place raw = nowhere();        ///< of the delivered block
  Place filtered = nowhere();   ///< of the last answer before the next packet
  bool ahead = false;           ///< ... which was asked for a later moment
  Place estimated = nowhere();  ///< live, in the packets that delivered the object
  Place smoothed = nowhere();   ///< likewise, by what came before and after
  Place truth = nowhere();
  std::optional<TruePlace> exactTruth;                       ///< the same
  float rawError = std::numeric_limits<float>::quiet_NaN();  ///< mm; NaN = unknown
  float filteredError = std::numeric_limits<float>::quiet_NaN();
  float estimatedError = std::numeric_limits<float>::quiet_NaN();
  float smoothedError = std::numeric_limits<float>::quiet_NaN();
  float epipolar = std::numeric_limits<float>::quiet_NaN();  ///< px; the largest of its pairs
  float rayGap = std::numeric_limits<float>::quiet_NaN();    ///< mm; likewise
  bool visible = false;  ///< a marker was reported by both cameras (truth)
  bool held = false;     ///< a jump or ratio test kept the old place
};

/// Gathers all about one object, packet by packet.
class ObjectTally {
 public:
  /// The envelopes and counts that an object has in the columns.
  static constexpr std::size_t kEnvelopes = 18;
  static constexpr std::size_t kCounts = 2;

  /// @param place  among the objects of the columns
  ObjectTally(int object, std::size_t place, const ReportRules& rules, bool hasTruth);

  int object() const { return numbers_.object; }

  /// The row of the packet that goes on.
  ObjectRow current;

  AnswerNumbers& answers() { return numbers_.answers; }

  /// Takes the row of a finished packet into account, in order of packets.
  /// @param column  the packet's
  void closeRow(const ObjectRow& row, const Moment& at, std::size_t column, Columns& columns,
                Events<JumpEvent>& jumps, Events<OutlierEvent>& outliers);

  /// After the last packet.
  void finish(Events<OutlierEvent>& outliers);

  ObjectNumbers numbers() const;
  ObjectCurves curves(const Columns& columns) const;

 private:
  void addPresence(const ObjectRow& row, const Moment& at);
  void addGap(const std::optional<Gap>& gap);
  void addTrueOutlier(const ObjectRow& row, const Moment& at, Events<OutlierEvent>& outliers);
  void closeTrueOutlier(Events<OutlierEvent>& outliers);
  void drawRow(const ObjectRow& row, std::size_t column, Columns& columns) const;

  std::size_t place_;
  double jumpMm_;
  bool hasTruth_;
  ObjectNumbers numbers_;
  RunningDistribution rawError_, filteredError_, epipolar_, rayGap_;
  GapFinder gaps_;
  JumpFinder jumps_;
  OutlierFinder lonely_;
  std::optional<Outlier> trueOutlier_;  ///< the worst one of the run that goes on
  /// At rest by the truth where there is any of the object, else by what its positions look like.
  struct Rest {
    void add(const Place& raw, const Place& filtered, const Place& truth);
    const JitterMeter& meter() const { return isKnown ? known : suspected; }

    bool isKnown = false;
    JitterMeter known{true}, suspected{false};
  };
  Rest rest_;
  LagMeter lag_;
  struct Alternative {
    void add(const Place& raw, const Place& place, const Place& truth, float errorMm);
    AlternativeNumbers get() const;

    RunningDistribution error;
    Rest rest;
    LagMeter lag;
  };
  Alternative estimated_, smoothed_;
  ThinnedPath path_, truePath_;
};

}  // namespace analysis
