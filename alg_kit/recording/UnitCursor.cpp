#include <alg_kit/recording/UnitCursor.h>

#include <string>
#include <utility>

namespace recording {

bool UnitCursor::next(session::Unit& unit) {
  if (!begun_) {
    begun_ = true;
    hasAhead_ = entries_.next(ahead_.append());
  }
  std::swap(unit, ahead_);
  ahead_.clear();
  if (!hasAhead_) {
    unit.clear();
    return false;
  }
  session::Entry& ahead = ahead_.append();
  while (true) {
    hasAhead_ = entries_.next(ahead);
    // A nested call whose parent was dropped stands for itself.
    if (!hasAhead_ || !ahead.call.parent || *ahead.call.parent < unit[0].call.index) return true;
    if (unit.used == kMostCallsPerUnit)
      throw RecordingError(entries_.path(),
                           "call " + std::to_string(unit[0].call.index) + ": expected at most " +
                               std::to_string(kMostCallsPerUnit) + " calls in one, found more");
    std::swap(unit.append(), ahead);
  }
}

}  // namespace recording
