#include <alg_kit/recording/ReRecording.h>

#include <algorithm>
#include <iterator>

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
  const std::int64_t shift = alg_.nextIndex() - call.index;
  if (played_.empty() || played_.back().shift != shift)
    played_.push_back({call.index, call.index, shift});
  played_.back().last = call.index;
}

RecorderStatus ReRecording::finish() {
  constexpr std::size_t kAtOnce = 1000;
  TruthCursor truth = reader_.truthRows();
  std::vector<session::TruthRow> rows;
  for (session::TruthRow row; truth.next(row);) {
    row.call = newIndexOf(row.call);
    rows.push_back(row);
    if (rows.size() < kAtOnce) continue;
    alg_.addTruth(rows);
    rows.clear();
  }
  alg_.addTruth(rows);
  return alg_.close();
}

std::optional<std::int64_t> ReRecording::newIndexOf(std::optional<std::int64_t> call) const {
  const auto next = std::upper_bound(
      played_.begin(), played_.end(), call.value_or(-1),
      [](std::int64_t index, const Stretch& stretch) { return index < stretch.first; });
  if (next == played_.begin() || *call > std::prev(next)->last) return std::nullopt;
  return *call + std::prev(next)->shift;
}

}  // namespace recording
