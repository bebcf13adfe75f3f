#pragma once

#include <alg_kit/trace/PipelineTrace.h>

#include <optional>

namespace analysis {

/// Whether the check byte that the device sent is right; nothing if there is none to look at. The
/// library keeps four zeros behind a stamped packet and looks for the check byte among them, so it
/// reports almost every stamped packet; the device's own stands before these zeros.
std::optional<bool> deviceCheckByteRight(const session::Call& call,
                                         const trace::PacketTrace& packet);

}  // namespace analysis
