#include <alg_kit/stream/McapExport.h>

#include <alg_kit/recording/FrameRate.h>
#include <alg_kit/recording/UnitCursor.h>
#include <alg_kit/stream/JsonMessages.h>
#include <alg_kit/stream/McapWriter.h>

#include <array>
#include <string>

namespace stream {
namespace {

class McapMessages final : public JsonMessages {
 public:
  McapMessages(std::ostream& out, const LengthUnit& unit) : JsonMessages(unit), writer_(out) {
    for (int i = 0; i < kChannels; ++i) {
      const ChannelFacts& facts = factsOf(channelAt(i));
      ids_[static_cast<std::size_t>(i)] =
          writer_.addChannel(facts.topic, facts.schemaName, facts.schema);
    }
  }

  std::int64_t finish() {
    writer_.finish();
    return messages_;
  }

 private:
  bool wants(Channel) override { return true; }
  void write(Channel channel, std::uint64_t hostNs, std::string json) override {
    writer_.write(ids_[static_cast<std::size_t>(channel)], hostNs, json);
    ++messages_;
  }

  McapWriter writer_;
  std::array<std::uint16_t, kChannels> ids_{};
  std::int64_t messages_ = 0;
};

}  // namespace

McapExport exportMcap(const recording::RecordingReader& reader, std::ostream& out,
                      const SceneOptions& options,
                      const std::function<void(std::int64_t)>& progress) {
  McapMessages messages(out, options.unit);
  SceneOptions paced = options;
  if (!options.bodies.empty()) paced.frameRate = recording::frameRateOf(reader);
  Scene scene(messages, paced);
  Context context;
  recording::UnitCursor cursor(reader.entries());
  for (session::Unit calls; cursor.next(calls);) {
    scene.take(calls, context);
    context.follow(calls);
    if (progress) progress(context.calls);
  }
  return {context.calls, messages.finish()};
}

}  // namespace stream
