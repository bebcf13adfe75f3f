#include <alg_kit/estimate/Estimate.h>

namespace estimate {

const char* nameOf(Source source) {
  switch (source) {
    case Source::kNone:
      return "none";
    case Source::kMeasured:
      return "measured";
    case Source::kBridged:
      return "bridged";
    case Source::kPredicted:
      return "predicted";
  }
  return "none";
}

const char* nameOf(Refusal refusal) {
  switch (refusal) {
    case Refusal::kNone:
      return "used";
    case Refusal::kNotSeen:
      return "not seen";
    case Refusal::kOneCamera:
      return "one camera";
    case Refusal::kRaysApart:
      return "rays apart";
    case Refusal::kOutOfRange:
      return "out of range";
    case Refusal::kOffTrack:
      return "off track";
    case Refusal::kBadPacket:
      return "bad packet";
    case Refusal::kLate:
      return "late";
  }
  return "used";
}

}  // namespace estimate
