#pragma once

#include <cstdint>

namespace hid {

/// One decoded blob record of a device packet: an id and the blob's image moments.
struct RawBlob {
  std::int8_t id = -1;       ///< blob id, 0 to the product's number of ids - 1
  std::uint32_t weight = 0;  ///< zeroth moment, 24 bits on the wire
  std::uint32_t sumX = 0;    ///< first moment in x: the centre is sumX / weight
  std::uint32_t sumY = 0;    ///< first moment in y: the centre is sumY / weight
};

}  // namespace hid
