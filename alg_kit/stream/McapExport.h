#pragma once

#include <alg_kit/recording/Recording.h>
#include <alg_kit/stream/Scene.h>

#include <cstdint>
#include <functional>
#include <ostream>

namespace stream {

struct McapExport {
  std::int64_t calls = 0;
  std::int64_t messages = 0;
};

/// Writes a recording as an MCAP file, with the channels and messages of the WebSocket server.
/// @param out       whether it can be written is the caller's to check
/// @param options   the frame rate is the recording's
/// @param progress  called with the number of calls so far; may throw
/// @throws recording::RecordingError for a damaged recording; as Scene
McapExport exportMcap(const recording::RecordingReader& reader, std::ostream& out,
                      const SceneOptions& options = {},
                      const std::function<void(std::int64_t)>& progress = {});

}  // namespace stream
