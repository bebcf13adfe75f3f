// What became of a blob, in words.
#pragma once

#include <alg_kit/trace/PipelineTrace.h>

#include <string>

namespace trace {

/// For people: "refused by the epipolar test".
const char* describe(BlobFate fate);

/// For programs: "epipolar".
const char* keyOf(BlobFate fate);

/// Why a blob of the packet ended where it did, in one line, with the value and the limit.
std::string reasonOf(const PacketTrace& packet, const TracedBlob& blob);

}  // namespace trace
