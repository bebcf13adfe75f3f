#include <alg_kit/analysis/ReportData.h>

#include <alg_factory/api/Constants.h>
#include <alg_kit/analysis/Answers.h>
#include <alg_kit/recording/UnitCursor.h>
#include <alg_kit/session/Player.h>
#include <alg_kit/trace/PipelineTrace.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace analysis {
namespace {

using session::Call;
using session::CallKind;
using session::Entry;
using session::TruthRow;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr auto kMostObjects = static_cast<std::size_t>(algorithm::kMaxObjects);

bool isPacket(const Call& call) {
  return call.kind == CallKind::kInputStream && algorithm::isPacketStream(call.type);
}

std::size_t objectsOf(int productType) {
  return static_cast<std::size_t>(algorithm::objectCount(productType));
}

/// The middle of an object's markers in one frame, mirrored as the library mirrors positions.
struct TruePlace {
  double time = 0;  ///< seconds since the recording's first call
  double x = 0, y = 0, z = 0;
  int markers = 0;
  bool visible = false;  ///< a marker was reported by both cameras
};

/// Where the objects really were.
class Truth {
 public:
  Truth(const std::vector<TruthRow>& rows, std::int64_t firstNs) {
    for (const TruthRow& row : rows) {
      if (row.object < 0 || static_cast<std::size_t>(row.object) >= kMostObjects) continue;
      auto& frames = frames_[static_cast<std::size_t>(row.object)];
      if (frames.empty() || row.frame != lastFrame_[static_cast<std::size_t>(row.object)]) {
        frames.push_back({(static_cast<double>(row.timeNs) - static_cast<double>(firstNs)) / 1e9});
        if (row.call) byCall_[*row.call][static_cast<std::size_t>(row.object)] = frames.size();
        lastFrame_[static_cast<std::size_t>(row.object)] = row.frame;
      }
      TruePlace& place = frames.back();
      place.x += row.position[0];
      place.y -= row.position[1];
      place.z -= row.position[2];
      ++place.markers;
      place.visible = place.visible || (row.inLeft && row.inRight);
      if (!row.call) lost_.insert_or_assign(row.frame, true);
    }
    for (auto& frames : frames_)
      for (TruePlace& place : frames) {
        place.x /= place.markers;
        place.y /= place.markers;
        place.z /= place.markers;
      }
  }

  std::int64_t framesLost() const { return static_cast<std::int64_t>(lost_.size()); }

  const TruePlace* at(std::int64_t call, std::size_t object) const {
    const auto found = byCall_.find(call);
    if (found == byCall_.end() || found->second[object] == 0) return nullptr;
    return &frames_[object][found->second[object] - 1];
  }

  /// Between frames, on a straight line.
  std::optional<TruePlace> at(double time, std::size_t object) const {
    const auto& frames = frames_[object];
    const auto after =
        std::lower_bound(frames.begin(), frames.end(), time,
                         [](const TruePlace& place, double moment) { return place.time < moment; });
    if (after == frames.begin() || after == frames.end()) return std::nullopt;
    const TruePlace& a = *(after - 1);
    const TruePlace& b = *after;
    const double share = (time - a.time) / (b.time - a.time);
    return TruePlace{time, a.x + share * (b.x - a.x), a.y + share * (b.y - a.y),
                     a.z + share * (b.z - a.z)};
  }

 private:
  std::array<std::vector<TruePlace>, kMostObjects> frames_;
  std::array<std::int64_t, kMostObjects> lastFrame_{};
  /// 1 + the index in `frames_`; 0 = none.
  std::map<std::int64_t, std::array<std::size_t, kMostObjects>> byCall_;
  std::map<std::int64_t, bool> lost_;
};

Place placeOf(const TruePlace& place) {
  return {static_cast<float>(place.x), static_cast<float>(place.y), static_cast<float>(place.z)};
}

float errorOf(const Place& found, const TruePlace& truth) {
  if (!isSomewhere(found)) return kNaN;
  return static_cast<float>(std::hypot(axisOf(found, 0) - truth.x, axisOf(found, 1) - truth.y,
                                       axisOf(found, 2) - truth.z));
}

/// Ids and positions, bit by bit; what hosts wrote into a record does not matter here.
bool sameBlock(const algorithm::ResultBlock& a, const algorithm::ResultBlock& b) {
  for (int k = 0; k < algorithm::ResultBlock::kRecords; ++k)
    if (std::memcmp(&a.records[k], &b.records[k], 4 * sizeof(float)) != 0) return false;
  return true;
}

/// Fills the data from the recording's entries, in order.
class Gatherer {
 public:
  Gatherer(ReportData& data, const Truth& truth, std::int64_t firstNs)
      : data_(data), truth_(truth), firstNs_(firstNs) {}

  void add(const Entry& entry) {
    const Call& call = entry.call;
    const double time = secondsOf(call);
    ++data_.calls;
    data_.seconds = std::max(data_.seconds, time);
    addMessages(entry);
    if (call.kind == CallKind::kInit) productType_ = call.type;
    if (call.kind == CallKind::kSetFilterMode && call.type == 0) filterMode_ = call.mode;

    const trace::PacketTrace* const packet = trace_.feed(call);
    const auto* const block = entry.blocks.empty() ? nullptr : &entry.blocks.back().block;
    if (block != nullptr) ++data_.blocks;
    const auto& traced = trace_.block();
    if ((block != nullptr) != traced.has_value() ||
        (block != nullptr && !sameBlock(*block, *traced)))
      ++data_.blocksDiffering;

    if (isPacket(call)) addPacket(call, time, block, packet);
    if (call.kind == CallKind::kHandleEvent) addAnswer(call);
  }

 private:
  double secondsOf(const Call& call) const {
    return (static_cast<double>(call.startNs) - static_cast<double>(firstNs_)) / 1e9;
  }

  void addMessages(const Entry& entry) {
    for (const session::LogLine& line : entry.logs) {
      std::string text = line.text;
      while (!text.empty() && text.back() == '\n') text.pop_back();
      const auto same = std::find_if(
          data_.messages.begin(), data_.messages.end(),
          [&](const ReportMessage& m) { return m.level == line.level && m.text == text; });
      if (same != data_.messages.end())
        ++same->count;
      else
        data_.messages.push_back({line.level, text, 1, entry.call.index});
    }
  }

  void addPacket(const Call& call, double time, const algorithm::ResultBlock* block,
                 const trace::PacketTrace* packet) {
    if (!data_.times.empty() && time < data_.times.back()) {
      ++data_.timesBackwards;
      time = data_.times.back();
    }
    data_.times.push_back(time);
    data_.packetTimes.push_back(call.durationNs ? static_cast<double>(*call.durationNs) / 1e3
                                                : std::numeric_limits<double>::quiet_NaN());
    packetCall_ = call.index;
    if (call.type == algorithm::kStampedPacket && call.payload.size() >= sizeof stamp_)
      std::memcpy(&stamp_, call.payload.data(), sizeof stamp_);
    if (block != nullptr) latest_ = *block;

    const std::size_t expected = objectsOf(productType_);
    for (ObjectTrack& track : data_.objects) {
      const auto object = static_cast<std::size_t>(track.object);
      if (object >= expected) {
        append(track, Presence::kNoSuchObject, nowhere());
        continue;
      }
      const bool seen = block != nullptr && block->records[object].id != -1;
      Place place = nowhere();
      if (seen) {
        const algorithm::TrackedPoint& record = block->records[object];
        place = {record.x, record.y, record.z};
        track.notFinite += isSomewhere(place) ? 0 : 1;
      }
      append(track, seen ? Presence::kSeen : Presence::kAbsent, place);
      if (const TruePlace* const truth = truth_.at(call.index, object)) {
        track.truth.back() = placeOf(*truth);
        track.rawError.back() = errorOf(place, *truth);
        track.visible += truth->visible ? 1 : 0;
        track.visibleSeen += truth->visible && seen ? 1 : 0;
      }
    }
    if (packet != nullptr) addPairs(*packet);
  }

  static void append(ObjectTrack& track, Presence presence, const Place& place) {
    track.presence.push_back(presence);
    track.raw.push_back(place);
    track.filtered.push_back(nowhere());
    track.truth.push_back(nowhere());
    for (auto* row : {&track.rawError, &track.filteredError, &track.epipolar, &track.rayGap})
      row->push_back(kNaN);
  }

  /// Of the points that reached their object.
  void addPairs(const trace::PacketTrace& packet) {
    std::array<bool, kMostObjects> held{};
    for (const trace::TracedPoint& point : packet.points) {
      const bool kept =
          point.fate == trace::BlobFate::kHeldByJump || point.fate == trace::BlobFate::kHeldByRatio;
      if (!kept && point.fate != trace::BlobFate::kDelivered) continue;
      const auto object = static_cast<std::size_t>(point.id);
      if (object >= data_.objects.size()) continue;
      ObjectTrack& track = data_.objects[object];
      held[object] = held[object] || kept;
      track.epipolar.back() =
          std::fmax(track.epipolar.back(), static_cast<float>(point.epipolarDistance));
      track.rayGap.back() = std::fmax(track.rayGap.back(), static_cast<float>(point.rayGap));
    }
    for (ObjectTrack& track : data_.objects)
      track.held += held[static_cast<std::size_t>(track.object)] ? 1 : 0;
  }

  void addAnswer(const Call& call) {
    const auto answer = poseOf(call);
    const bool expected =
        call.type >= 0 && static_cast<std::size_t>(call.type) < data_.objects.size();
    if (!answer || !expected || data_.times.empty()) return;

    const auto object = static_cast<std::size_t>(call.type);
    ObjectTrack& track = data_.objects[object];
    ++track.answers;
    if (latest_.records[object].id == -1) {
      ++track.answersBridged;
      return;  // an old place under its old name: no measurement of this packet
    }
    if (std::memcmp(answer->filtered, answer->raw, sizeof answer->raw) != 0)
      ++track.answersFiltered;
    if (track.presence.back() != Presence::kSeen) return;  // the packet gave no block
    track.filtered.back() = {answer->filtered[0], answer->filtered[1], answer->filtered[2]};
    track.filteredError.back() = kNaN;
    const TruePlace* const truth = truth_.at(packetCall_, object);
    if (truth == nullptr) return;
    const double ahead = extrapolationOf(call);
    if (ahead == 0) {
      track.filteredError.back() = errorOf(track.filtered.back(), *truth);
    } else if (const auto moved = truth_.at(truth->time + ahead, object)) {
      track.filteredError.back() = errorOf(track.filtered.back(), *moved);
    }
  }

  /// How far behind the latest packet the moment of an answer lies, seconds.
  double extrapolationOf(const Call& call) const {
    std::uint64_t stamp = 0;
    const bool readsStamp =
        algorithm::readsStamp(productType_, call.type) && call.payload.size() == sizeof stamp;
    if (!readsStamp || filterMode_ == algorithm::kFilterOff) return 0;
    std::memcpy(&stamp, call.payload.data(), sizeof stamp);
    const double ahead = static_cast<double>(stamp - stamp_) / 1e6;
    const bool extrapolated =
        stamp != algorithm::kFilterStateStamp && ahead > 0 && ahead < algorithm::kMaxExtrapolation;
    return extrapolated ? ahead : 0;
  }

  ReportData& data_;
  const Truth& truth_;
  std::int64_t firstNs_;
  trace::PipelineTrace trace_;
  int productType_ = 0;
  int filterMode_ = algorithm::kFilterOff;
  std::uint32_t stamp_ = 0;  ///< of the latest stamped packet, microseconds
  std::int64_t packetCall_ = 0;
  algorithm::ResultBlock latest_;
};

/// The time of every packet in a replay through the public interface.
void measureAnew(const recording::RecordingReader& reader, algorithm::AlgBase& library,
                 const Progress& progress, ReportData& data) {
  session::Player player(&library);
  recording::UnitCursor units(reader.entries());
  session::Unit unit;
  std::int64_t calls = 0;
  data.packetTimes.clear();
  while (units.next(unit)) {
    for (const Entry& entry : player.play(unit))
      if (isPacket(entry.call))
        data.packetTimes.push_back(static_cast<double>(*entry.call.durationNs) / 1e3);
    calls += static_cast<std::int64_t>(unit.size());
    if (progress) progress("measuring", calls, data.calls);
  }
  data.measuredAnew = true;
}

}  // namespace

ReportData gatherReport(const recording::RecordingReader& reader, algorithm::AlgBase& library,
                        const Progress& progress) {
  ReportData data;
  data.file = reader.path();
  data.metadata = reader.metadata();
  data.configurations = reader.configurations();
  std::size_t objects = 0;
  for (const recording::Configuration& configuration : data.configurations)
    objects = std::max(objects, objectsOf(configuration.productType));
  if (!reader.packetCall(0) || objects == 0)
    throw std::runtime_error(reader.path() +
                             ": expected an initialised library and device packets (InputStream "
                             "of stream type 0 or 2), found none");
  for (std::size_t object = 0; object < objects; ++object)
    data.objects.emplace_back().object = static_cast<int>(object);

  Entry entry;
  const std::int64_t firstNs = reader.entries().next(entry) ? entry.call.startNs : 0;
  data.hasTruth = reader.hasTruth();
  const Truth truth(data.hasTruth ? reader.truth() : std::vector<TruthRow>(), firstNs);
  data.framesLost = truth.framesLost();
  {
    Gatherer gatherer(data, truth, firstNs);
    const std::int64_t calls = reader.callCount();
    auto entries = reader.entries();
    while (entries.next(entry)) {
      gatherer.add(entry);
      if (progress) progress("reading", data.calls, calls);
    }
  }
  const bool measured = std::any_of(data.packetTimes.begin(), data.packetTimes.end(),
                                    [](double time) { return std::isfinite(time); });
  if (!measured) measureAnew(reader, library, progress, data);
  return data;
}

}  // namespace analysis
