#include <alg_kit/recording/UnitCursor.h>

#include <string>
#include <utility>

namespace recording {

bool UnitCursor::next(session::Unit& unit) {
  unit.clear();
  if (!begun_) {
    begun_ = true;
    hasAhead_ = entries_.next(ahead_);
  }
  if (!hasAhead_) return false;
  do {
    if (unit.used == kMostCallsPerUnit)
      throw RecordingError(entries_.path(),
                           "call " + std::to_string(unit[0].call.index) + ": expected at most " +
                               std::to_string(kMostCallsPerUnit) + " calls in one, found more");
    std::swap(unit.append(), ahead_);
    hasAhead_ = entries_.next(ahead_);
    // A nested call whose parent was dropped stands for itself.
  } while (hasAhead_ && ahead_.call.parent && *ahead_.call.parent >= unit[0].call.index);
  return true;
}

}  // namespace recording
