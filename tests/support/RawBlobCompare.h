#pragma once

#include <alg_factory/hid/RawBlob.h>

#include <ostream>

namespace hid {

inline bool operator==(const RawBlob& a, const RawBlob& b) {
  return a.id == b.id && a.weight == b.weight && a.sumX == b.sumX && a.sumY == b.sumY;
}

inline void PrintTo(const RawBlob& blob, std::ostream* out) {
  *out << "{id " << int{blob.id} << ", weight " << blob.weight << ", sumX " << blob.sumX
       << ", sumY " << blob.sumY << "}";
}

}  // namespace hid
