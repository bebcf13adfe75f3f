#include <alg_factory/steady3d/JumpGuard.h>

namespace algorithm {

PointF JumpGuard::accept(const PointF& position) {
  PointF accepted = position;
  if (fresh_) {
    fresh_ = false;
  } else if (rejectCount_ >= kMaxRejections) {
    rejectCount_ = 0;
  } else if (distance(position, lastAccepted_) > maxDistance_) {
    accepted = lastAccepted_;
    ++rejectCount_;
  }
  lastAccepted_ = accepted;
  return accepted;
}

}  // namespace algorithm
