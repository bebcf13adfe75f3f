#include <alg_kit/recording/UnitCursor.h>

#include <utility>

namespace recording {

bool UnitCursor::next(std::vector<session::Entry>& unit) {
  if (!begun_) {
    begun_ = true;
    hasAhead_ = entries_.next(ahead_);
  }
  if (!hasAhead_) return false;
  std::size_t count = 0;
  do {
    if (count == unit.size()) unit.emplace_back();
    std::swap(unit[count++], ahead_);
    hasAhead_ = entries_.next(ahead_);
    // A nested call whose parent was dropped stands for itself.
  } while (hasAhead_ && ahead_.call.parent && *ahead_.call.parent >= unit[0].call.index);
  unit.resize(count);
  return true;
}

}  // namespace recording
