// What the WebSocket server and the MCAP file share: channels with their schemas, and the messages
// as JSON.
#pragma once

#include <alg_kit/stream/Scene.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace stream {

enum class Channel { kScene, kTransforms, kLog, kBlock, kBlobs, kStatistics, kBodies };
constexpr int kChannels = 7;

constexpr Channel channelAt(int index) {
  return static_cast<Channel>(index);
}

/// Of an encoding "json" and a schema encoding "jsonschema".
struct ChannelFacts {
  const char* topic;
  const char* schemaName;
  std::string_view schema;  ///< JSON Schema
};
const ChannelFacts& factsOf(Channel channel);

/// Turns what a scene tells into JSON, for the channels that are wanted.
class JsonMessages : public Listener {
 public:
  explicit JsonMessages(LengthUnit unit = {}) : unit_(std::move(unit)) {}

  void onFrame(const Frame& frame) override;
  void onBlobs(const Blobs& blobs) override;
  void onMessage(const Message& message) override;
  void onStatistics(const Statistics& statistics) override;

 protected:
  virtual bool wants(Channel channel) = 0;

  /// @param hostNs  Place::hostNs, not below 0
  virtual void write(Channel channel, std::uint64_t hostNs, std::string json) = 0;

 private:
  LengthUnit unit_;
};

}  // namespace stream
