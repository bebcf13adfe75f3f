#include <alg_kit/recording/ReRecording.h>

#include <alg_factory/api/Constants.h>

#include <vector>

namespace recording {
namespace {

RecordingAlgOptions optionsFor(const RecordingReader& reader, const session::Player& player,
                               const algorithm::AlgBase* library,
                               const std::map<std::string, std::string>& facts) {
  RecordingAlgOptions options;
  options.overwrite = true;
  options.waitWhenFull = true;
  options.library = library;
  options.clock = [&player] { return player.recordedNs(); };
  options.clockName = reader.metadata().clock;
  for (const auto& fact : reader.metadata().values) options.facts.insert(fact);
  for (const auto& [key, value] : facts) options.facts[key] = value;
  return options;
}

}  // namespace

ReRecording::ReRecording(const RecordingReader& reader, session::Player& player,
                         algorithm::AlgBase* alg, const algorithm::AlgBase* library,
                         const std::string& path, const std::map<std::string, std::string>& facts)
    : reader_(reader), alg_(alg, path, optionsFor(reader, player, library, facts)) {
  player.playThrough(&alg_);
}

void ReRecording::willPlay(const session::Call& call) {
  if (call.kind == session::CallKind::kInputStream && algorithm::isPacketStream(call.type))
    newIndex_[call.index] = alg_.nextIndex();
}

RecorderStatus ReRecording::finish() {
  std::vector<session::TruthRow> truth = reader_.truth();
  for (session::TruthRow& row : truth) {
    if (!row.call) continue;
    const auto found = newIndex_.find(*row.call);
    row.call = found == newIndex_.end() ? std::nullopt : std::optional(found->second);
  }
  alg_.addTruth(truth);
  return alg_.close();
}

}  // namespace recording
