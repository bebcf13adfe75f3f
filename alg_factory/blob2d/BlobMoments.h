#pragma once

#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/hid/RawBlob.h>

namespace algorithm {

/// Diameter in pixels of a disc whose area is weight / areaDivisor pixels, rounded to whole pixels
/// of radius, hence even: 2 trunc(sqrt(weight / areaDivisor / pi) + 0.5). A radius that does not
/// fit (a zero divisor) is held at 2^28, so that sums of diameters stay within 32 bits; one that is
/// not a number is 0.
int blobDiameter(std::uint32_t weight, std::int32_t areaDivisor);

/// The blob's centre and diameter. Precondition: `raw.weight` is not 0.
Blob2DPoint pointFromMoments(const hid::RawBlob& raw, std::int32_t areaDivisor);

/// Replaces `blobs` by the centres and diameters of those of `rawBlobs` that `which` lists, in its
/// order. Precondition: they have weight.
void measureBlobs(const std::vector<hid::RawBlob>& rawBlobs,
                  const std::vector<std::uint32_t>& which, std::int32_t areaDivisor,
                  std::vector<Blob2DPoint>& blobs);

}  // namespace algorithm
