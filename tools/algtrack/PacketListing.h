// One packet for people and, with --json, for programs: its bytes, and what became of its blobs.
#pragma once

#include <alg_kit/recording/Recording.h>
#include <alg_kit/trace/PipelineTrace.h>
#include <tools/algtrack/terminal/Table.h>

#include <optional>

namespace algtrack {

/// Every byte of the packet with its meaning. Offsets count from the payload's first byte.
Table byteTable(const session::Call& call, const trace::PacketTrace& packet);

/// The packet's blobs in packet order, each with where it ended and why.
/// @param object  with this id alone
Table blobTable(const trace::PacketTrace& packet, std::optional<int> object = std::nullopt);

/// The points that its pairs gave, with what became of them.
Table pointTable(const trace::PacketTrace& packet, std::optional<int> object = std::nullopt);

/// The objects of the delivered block.
Table objectTable(const algorithm::ResultBlock& block, std::optional<int> object = std::nullopt);

}  // namespace algtrack
