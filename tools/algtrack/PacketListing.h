// One packet for people and, with --json, for programs: its bytes, and what became of its blobs.
#pragma once

#include <alg_kit/recording/Recording.h>
#include <alg_kit/trace/PipelineTrace.h>
#include <tools/algtrack/terminal/Table.h>

#include <optional>

namespace algtrack {

/// Every byte of the packet with its meaning. Offsets count from the payload's first byte.
Table byteTable(const session::Call& call, const trace::PacketTrace& packet);

/// Of a stamped packet: whether the device's own check byte is right. The library looks for it four
/// bytes further on, among the zeros that it keeps behind such a packet, and so reports almost
/// every one. Nothing for a plain packet.
std::optional<bool> deviceCheckByteRight(const session::Call& call,
                                         const trace::PacketTrace& packet);

/// The packet's blobs in packet order, each with where it ended and why.
Table blobTable(const trace::PacketTrace& packet);

/// The points that its pairs gave, with what became of them.
Table pointTable(const trace::PacketTrace& packet);

/// The objects of the delivered block.
Table objectTable(const algorithm::ResultBlock& block);

}  // namespace algtrack
