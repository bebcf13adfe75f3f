#include <alg_kit/analysis/ReportMaker.h>

#include <alg_factory/api/Constants.h>
#include <alg_kit/analysis/Answers.h>
#include <alg_kit/analysis/BodyTally.h>
#include <alg_kit/analysis/CheckByte.h>
#include <alg_kit/analysis/EstimatedPlaces.h>
#include <alg_kit/analysis/ObjectTally.h>
#include <alg_kit/analysis/RecordedHealth.h>
#include <alg_kit/analysis/RecordingSurvey.h>
#include <alg_kit/analysis/TruthTrack.h>
#include <alg_kit/bodies/CallFrames.h>
#include <alg_kit/calibration/CalibrationCheck.h>
#include <alg_kit/calibration/CalibrationHealth.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/recording/FrameRate.h>
#include <alg_kit/recording/UnitCursor.h>
#include <alg_kit/session/Player.h>
#include <alg_kit/trace/PipelineTrace.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <filesystem>
#include <limits>
#include <map>
#include <stdexcept>
#include <utility>

namespace analysis {
namespace {

using session::Call;
using session::CallKind;
using session::Entry;

constexpr std::size_t kMostColumns = 8192;
constexpr std::int64_t kMostMeasured = 2700;  // packets: half a minute at the usual rate
/// Packets that wait for what the other thread makes of them, 20 MB at most.
constexpr std::size_t kMostWaiting = 16384;
static_assert(kMostWaiting > Estimation::kDelay);

std::size_t objectsOf(int productType) {
  return static_cast<std::size_t>(algorithm::objectCount(productType));
}

std::string plural(std::int64_t count, const std::string& one, const std::string& more) {
  return std::to_string(count) + " " + (count == 1 ? one : more);
}

float errorOf(const Place& found, const TruePlace& truth) {
  // NaN where there is no place.
  return static_cast<float>(std::hypot(axisOf(found, 0) - truth.x, axisOf(found, 1) - truth.y,
                                       axisOf(found, 2) - truth.z));
}

/// Ids and positions, bit by bit; what hosts wrote into a record does not matter here.
bool sameBlock(const algorithm::ResultBlock& a, const algorithm::ResultBlock& b) {
  for (int k = 0; k < algorithm::ResultBlock::kRecords; ++k)
    if (std::memcmp(&a.records[k], &b.records[k], 4 * sizeof(float)) != 0) return false;
  return true;
}

/// What the library logged, by level and text.
class MessageTally {
 public:
  void add(const session::LogLine& line, const Moment& at) {
    std::string text = line.text.substr(0, kLongestMessage);
    while (!text.empty() && text.back() == '\n') text.pop_back();
    const auto known = places_.find({line.level, text});
    if (known != places_.end()) {
      ++messages_[known->second].count;
    } else if (messages_.size() == kMostMessages) {
      ++leftOut_;
    } else {
      places_.emplace(std::pair(line.level, text), messages_.size());
      messages_.push_back({line.level, text, 1, at});
    }
  }

  const std::vector<ReportMessage>& messages() const { return messages_; }
  std::int64_t leftOut() const { return leftOut_; }

 private:
  std::map<std::pair<int, std::string>, std::size_t> places_;
  std::vector<ReportMessage> messages_;  ///< in order of the first time
  std::int64_t leftOut_ = 0;
};

/// Gathers the report from the recording's entries, in order.
class Gatherer {
 public:
  /// @param thread  outlives this
  Gatherer(const recording::RecordingReader& reader,
           const std::vector<recording::Configuration>& configurations, const ReportRules& rules,
           const ReportRange& range, const std::vector<int>& objects,
           const std::vector<bodies::Body>& bodies, std::int64_t firstNs, double frameRate,
           SideThread& thread)
      : configurations_(configurations),
        range_(range),
        truth_(reader.hasTruth() ? std::optional(reader.truthRows()) : std::nullopt, firstNs),
        firstNs_(firstNs),
        thread_(thread),
        estimation_(reader.callCount(), frameRate, thread),
        bodyFrames_(frameRate),
        columns_(objects.size() * ObjectTally::kEnvelopes + bodies.size() * BodyTally::kEnvelopes,
                 objects.size() * ObjectTally::kCounts, kMostColumns),
        places_(objects.size()),
        truths_(objects.size()),
        swapFinder_(objects.size(), reader.hasTruth()),
        worst_(range.object) {
    numbers_.rules = rules;
    numbers_.range = range;
    numbers_.recording.hasTruth = reader.hasTruth();
    for (const int object : objects)
      tallies_.emplace_back(object, tallies_.size(), rules, reader.hasTruth());
    const double noise = bodies.empty() ? 0 : bodies::blobNoiseOf(reader);
    for (const bodies::Body& body : bodies)
      bodies_.emplace_back(
          body, objects.size() * ObjectTally::kEnvelopes + bodies_.size() * BodyTally::kEnvelopes,
          noise);
  }

  void add(const Entry& entry) {
    const Call& call = entry.call;
    const double seconds = secondsOf(call);
    if (call.kind == CallKind::kInit) productType_ = call.type;
    if (call.kind == CallKind::kSetFilterMode && call.type == 0) filterMode_ = call.mode;
    estimation_.add(call);
    followBodies(call);
    const trace::PacketTrace* const packet = trace_.feed(call);
    if (packet != nullptr) views_.add(*packet, seconds);
    const auto* const block = entry.blocks.empty() ? nullptr : &entry.blocks.back().block;
    if (isPacket(call)) beginPacket(call, seconds, block);
    if (!range_.time.contains(seconds)) return;

    RecordingFacts& facts = numbers_.recording;
    if (facts.calls++ == 0) firstS_ = seconds;
    facts.seconds = std::max(facts.seconds, seconds - firstS_);
    facts.blocks += block != nullptr ? 1 : 0;
    for (const session::LogLine& line : entry.logs)
      messages_.add(line, {at_.packet, call.index, seconds});
    const auto& traced = trace_.block();
    if ((block != nullptr) != traced.has_value() ||
        (block != nullptr && !sameBlock(*block, *traced)))
      ++blocksDiffering_;
    if (isPacket(call)) addPacket(call, block, packet);
    if (call.kind == CallKind::kHandleEvent) addAnswer(call);
  }

  /// @param reader  for what it knows of itself
  Report finish(const recording::RecordingReader& reader) {
    closePacket();
    estimation_.finish();
    judgeCalibration();  // while the last packets are estimated
    closeRows(0);
    const auto addSwap = [this](const Swap& swap) { numbers_.swaps.add(named(swap)); };
    swapFinder_.finish(addSwap);
    columns_.breakAtPauses();
    truth_.finish();
    Report report;
    for (ObjectTally& tally : tallies_) {
      tally.finish(numbers_.outliers);
      numbers_.objects.push_back(tally.numbers());
      report.curves.objects.push_back(tally.curves(columns_));
    }
    for (const BodyTally& body : bodies_) {
      numbers_.bodies.push_back(body.numbers());
      report.curves.bodies.push_back(body.curves(columns_));
    }
    describeRecording(reader);
    numbers_.worst = worst_.list();
    numbers_.corruptPackets = worst_.corrupt();
    numbers_.outliersKnownFromTruth = numbers_.swapsKnownFromTruth = numbers_.recording.hasTruth;
    numbers_.packetTimes.us = packetTimes_.get();
    numbers_.packetTimes.histogram = packetHistogram_.bins();
    numbers_.messages = messages_.messages();
    numbers_.messagesLeftOut = messages_.leftOut();
    writeNotices();
    report.numbers = std::move(numbers_);
    report.curves.columnS = columns_.width();
    report.curves.times = columns_.times();
    report.curves.packets = columns_.packets();
    report.curves.calls = columns_.calls();
    return report;
  }

 private:
  double secondsOf(const Call& call) const {
    return (static_cast<double>(call.startNs) - static_cast<double>(firstNs_)) / 1e9;
  }

  void followBodies(const Call& call) {
    if (bodies_.empty()) return;
    sawBodies_ = bodyFrames_.take(call);
    for (BodyTally& body : bodies_)
      if (sawBodies_) body.feed(bodyFrames_.frame(), *bodyFrames_.cameras());
  }

  /// Whatever the range, the library and this class remember the latest packet.
  void beginPacket(const Call& call, double seconds, const algorithm::ResultBlock* block) {
    closePacket();
    isBackwards_ = at_.packet >= 0 && seconds < at_.seconds;
    at_ = {at_.packet + 1, call.index, isBackwards_ ? at_.seconds : seconds};
    if (call.type == algorithm::kStampedPacket && call.payload.size() >= sizeof stamp_)
      std::memcpy(&stamp_, call.payload.data(), sizeof stamp_);
    if (block != nullptr) latest_ = *block;
    truth_.goTo(call.index, seconds);
  }

  void addPacket(const Call& call, const algorithm::ResultBlock* block,
                 const trace::PacketTrace* packet) {
    if (numbers_.recording.packets++ == 0)
      firstPacketS_ = at_.seconds;
    else
      intervals_.add(1e3 * (at_.seconds - lastPacketS_));
    lastPacketS_ = at_.seconds;
    timesBackwards_ += isBackwards_ ? 1 : 0;
    if (call.durationNs) {
      packetTimes_.add(static_cast<double>(*call.durationNs) / 1e3);
      packetHistogram_.add(static_cast<double>(*call.durationNs) / 1e3);
    }
    columns_.begin(at_.seconds, at_.packet, at_.call);
    column_ = columns_.latest();
    open_ = true;
    if (call.type == algorithm::kStampedPacket && packet != nullptr)
      stampedReports_ += packet->status == hid::DecodeStatus::kBadCheck ? 1 : 0;
    const bool corrupt = packet != nullptr && deviceCheckByteRight(call, *packet) == false;
    worst_.add(at_, productType_, block, truth_.rows(), corrupt);
    for (BodyTally& body : bodies_) body.add(sawBodies_, truth_.rows(), columns_);
    for (ObjectTally& tally : tallies_) fillRow(tally, block);
    const bool anySeen = std::any_of(
        tallies_.begin(), tallies_.end(),
        [](const ObjectTally& tally) { return tally.current.presence == Presence::kSeen; });
    if (anySeen) estimates_ = estimation_.want();
    if (packet != nullptr) addPairs(*packet);
  }

  void fillRow(ObjectTally& tally, const algorithm::ResultBlock* block) {
    const auto object = static_cast<std::size_t>(tally.object());
    if (object >= objectsOf(productType_)) return;
    ObjectRow& row = tally.current;
    const bool seen = block != nullptr && block->records[object].id != algorithm::kNoObject;
    row.presence = seen ? Presence::kSeen : Presence::kAbsent;
    if (seen) {
      const algorithm::TrackedPoint& record = block->records[object];
      row.raw = {record.x, record.y, record.z};
    }
    if (const TruePlace* const truth = truth_.at(object)) {
      row.exactTruth = *truth;
      row.truth = placeOf(*truth);
      row.rawError = errorOf(row.raw, *truth);
      row.visible = truth->visible;
    }
  }

  /// Of the points that reached their object.
  void addPairs(const trace::PacketTrace& packet) {
    for (const trace::TracedPoint& point : packet.points) {
      const bool held =
          point.fate == trace::BlobFate::kHeldByJump || point.fate == trace::BlobFate::kHeldByRatio;
      ObjectTally* const tally = tallyOf(point.id);
      if ((!held && point.fate != trace::BlobFate::kDelivered) || tally == nullptr) continue;
      ObjectRow& row = tally->current;
      row.held = row.held || held;
      row.epipolar = std::fmax(row.epipolar, static_cast<float>(point.epipolarDistance));
      row.rayGap = std::fmax(row.rayGap, static_cast<float>(point.rayGap));
    }
  }

  void addAnswer(const Call& call) {
    ObjectTally* const tally = algorithm::isPoseEvent(call.type) ? tallyOf(call.type) : nullptr;
    if (tally == nullptr) return;
    ++tally->answers().asked;
    const auto answer = poseOf(call);
    if (!answer || at_.packet < 0) return;

    ++tally->answers().answered;
    const auto object = static_cast<std::size_t>(call.type);
    if (latest_.records[object].id == algorithm::kNoObject) {
      ++tally->answers().bridged;
      return;  // an old place under its old name: no measurement of this packet
    }
    if (std::memcmp(answer->filtered, answer->raw, sizeof answer->raw) != 0)
      ++tally->answers().filtered;
    const double ahead = extrapolationOf(call);
    tally->answers().ahead += ahead > 0 ? 1 : 0;
    ObjectRow& row = tally->current;
    if (!open_ || row.presence != Presence::kSeen) return;  // the packet gave no block
    row.filtered = {answer->filtered[0], answer->filtered[1], answer->filtered[2]};
    row.ahead = ahead > 0;
    row.filteredError = std::numeric_limits<float>::quiet_NaN();
    if (ahead > 0) {
      if (const auto moved = truth_.ahead(ahead, object))
        row.filteredError = errorOf(row.filtered, *moved);
    } else if (const TruePlace* const truth = truth_.at(object)) {
      row.filteredError = errorOf(row.filtered, *truth);
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

  void closePacket() {
    if (!open_) return;
    open_ = false;
    for (std::size_t i = 0; i < tallies_.size(); ++i) {
      places_[i] = tallies_[i].current.raw;
      truths_[i] = tallies_[i].current.truth;
    }
    swapFinder_.add(at_, places_, truths_,
                    [this](const Swap& swap) { numbers_.swaps.add(named(swap)); });
    Waiting& packet = waiting_.emplace_back();
    packet.at = at_;
    packet.column = column_;
    packet.estimates = std::exchange(estimates_, std::nullopt);
    packet.rows.reserve(tallies_.size());
    for (ObjectTally& tally : tallies_) packet.rows.push_back(std::exchange(tally.current, {}));
    closeRows(kMostWaiting);
  }

  /// Of the packets whose estimates are there; waits for them where more than `most` wait.
  void closeRows(std::size_t most) {
    for (; !waiting_.empty(); waiting_.pop_front()) {
      Waiting& packet = waiting_.front();
      if (packet.estimates && waiting_.size() <= most && !packet.estimates->isThere()) return;
      const std::size_t column = columns_.columnOf(packet.column);
      for (std::size_t i = 0; i < tallies_.size(); ++i) {
        ObjectRow& row = packet.rows[i];
        if (packet.estimates) addEstimates(tallies_[i].object(), packet.estimates->get(), row);
        tallies_[i].closeRow(row, packet.at, column, columns_, numbers_.jumps, numbers_.outliers);
      }
    }
  }

  /// In the packets that delivered the object, so that all are compared over the same.
  static void addEstimates(int object, const EstimatedPlaces& places, ObjectRow& row) {
    if (row.presence != Presence::kSeen) return;
    const auto of = [object](const ObjectPlaces& all) {
      const auto at = static_cast<std::size_t>(object);
      return at < all.size() ? all[at] : nowhere();
    };
    row.estimated = of(places.live);
    row.smoothed = of(places.smoothed);
    if (!row.exactTruth) return;
    row.estimatedError = errorOf(row.estimated, *row.exactTruth);
    row.smoothedError = errorOf(row.smoothed, *row.exactTruth);
  }

  ObjectTally* tallyOf(int object) {
    const auto found =
        std::find_if(tallies_.begin(), tallies_.end(),
                     [object](const ObjectTally& tally) { return tally.object() == object; });
    return found != tallies_.end() ? &*found : nullptr;
  }

  /// Places among the tallies become objects.
  Swap named(Swap swap) const {
    swap.a = static_cast<std::size_t>(tallies_[swap.a].object());
    swap.b = static_cast<std::size_t>(tallies_[swap.b].object());
    return swap;
  }

  void describeRecording(const recording::RecordingReader& reader) {
    RecordingFacts& facts = numbers_.recording;
    facts.file = std::filesystem::path(reader.path()).filename().string();
    facts.metadata = reader.metadata();
    facts.framesLost = truth_.framesLost();
    const double span = lastPacketS_ - firstPacketS_;
    if (span > 0) facts.packetsPerSecond = static_cast<double>(facts.packets - 1) / span;
    if (facts.packets > 1) facts.medianIntervalMs = intervals_.get().median;
    for (const recording::Configuration& configuration : configurations_) {
      if (facts.productTypes.empty() || facts.productTypes.back() != configuration.productType)
        facts.productTypes.push_back(configuration.productType);
      if (!configuration.calibration) continue;
      const algorithm::StereoCalibration& c = *configuration.calibration;
      const auto focal = [](const double* k) { return std::array<double, 2>{k[0], k[4]}; };
      facts.calibration =
          CalibrationFacts{std::hypot(c.translation[0], c.translation[1], c.translation[2]),
                           focal(c.leftIntrinsics), focal(c.rightIntrinsics)};
    }
  }

  /// What the blobs say of the latest calibration.
  void judgeCalibration() {
    for (auto it = configurations_.rbegin(); it != configurations_.rend(); ++it) {
      calibration_ = it->calibration ? usableOf(*it->calibration) : std::nullopt;
      if (!calibration_) continue;
      numbers_.recording.health =
          healthFactsOf(*calibration_, views_.pairs,
                        [this](std::size_t count, const auto& job) { thread_.runAll(count, job); });
      return;
    }
  }

  void writeNotices() {
    const auto say = [this](const std::string& text) { numbers_.notices.push_back(text); };
    const RecordingFacts& facts = numbers_.recording;
    if (!range_.whole())
      say("This is a part of the recording: what lies outside it counts nowhere but in what the "
          "library remembered.");
    if (!facts.metadata.complete)
      say("The recording was cut off, or still goes on: what follows its last whole call is "
          "missing.");
    if (facts.metadata.journalMissing)
      say("Its journal (" + facts.file +
          "-wal) is not beside it: the latest calls are in there. Copy both.");
    if (facts.metadata.droppedCalls > 0)
      say(plural(facts.metadata.droppedCalls, "call was", "calls were") +
          " dropped by the recorder, which could not write them in time. Gaps may be its own.");
    if (blocksDiffering_ > 0)
      say("A replay delivers " + plural(blocksDiffering_, "block", "blocks") +
          " otherwise than recorded. Positions are the recorded ones; epipolar residual, ray gap "
          "and held positions are those of the replay.");
    if (timesBackwards_ > 0)
      say(plural(timesBackwards_, "packet has", "packets have") +
          " a time before the packet's before it, and stand at that one's time.");
    if (facts.framesLost > 0)
      say(plural(facts.framesLost, "frame", "frames") +
          " never reached the library (packets lost on the way). They count in no share below.");
    if (numbers_.corruptPackets > 0)
      say(plural(numbers_.corruptPackets, "packet is", "packets are") +
          " corrupt: the check byte that the device sent does not fit the bytes before it.");
    if (stampedReports_ > 0)
      say("Of " + plural(stampedReports_, "stamped packet", "stamped packets") +
          " the library reports the check byte as wrong. That is normal: it looks for it four "
          "bytes "
          "behind the device's.");
    std::int64_t notFinite = 0;
    for (const ObjectNumbers& object : numbers_.objects) notFinite += object.notFinite;
    if (notFinite > 0)
      say(plural(notFinite, "delivered position is", "delivered positions are") + " not finite.");
    const auto finding = calibration_ ? calibration::judgeUnit(*calibration_) : std::nullopt;
    if (finding) say(finding->text);
    const auto& health = facts.health;
    if (health && (health->verdict == calibration::nameOf(calibration::HealthVerdict::kStale) ||
                   health->verdict == calibration::nameOf(calibration::HealthVerdict::kDrifts)))
      say("By what the cameras saw, " + health->text + ".");
  }

  std::vector<recording::Configuration> configurations_;
  std::optional<calibration::LoadedCalibration> calibration_;  ///< the latest that is usable
  ReportRange range_;
  TruthTrack truth_;
  std::int64_t firstNs_;
  trace::PipelineTrace trace_;
  calibration::RecordedViews views_;
  SideThread& thread_;
  Estimation estimation_;
  int productType_ = 0;
  int filterMode_ = algorithm::kFilterOff;
  std::uint32_t stamp_ = 0;  ///< of the latest stamped packet, microseconds
  /// A finished packet, until its places are estimated.
  struct Waiting {
    Moment at;
    Columns::Packet column;
    std::optional<Estimation::Packet> estimates;  ///< none = it will have none
    std::vector<ObjectRow> rows;                  ///< by tally
  };
  std::deque<Waiting> waiting_;

  Moment at_{-1, 0, 0};       ///< the latest packet
  bool isBackwards_ = false;  ///< its recorded time is before that of the packet before
  bool open_ = false;         ///< it is in the range, and its rows are still to be closed
  Columns::Packet column_;
  std::optional<Estimation::Packet> estimates_;
  algorithm::ResultBlock latest_;

  ReportNumbers numbers_;
  std::vector<ObjectTally> tallies_;
  bodies::CallFrames bodyFrames_;
  bool sawBodies_ = false;  ///< the latest call was a packet that bodies can be looked for in
  std::vector<BodyTally> bodies_;
  Columns columns_;
  std::vector<Place> places_, truths_;  ///< by tally, of the packet that is closed
  SwapFinder swapFinder_;
  WorstMoments worst_;
  MessageTally messages_;
  RunningDistribution packetTimes_, intervals_;
  LogarithmicHistogram packetHistogram_;
  double firstS_ = 0, firstPacketS_ = 0, lastPacketS_ = 0;
  std::int64_t timesBackwards_ = 0, blocksDiffering_ = 0, stampedReports_ = 0;
};

/// The time of the packets in a replay through the public interface. Of many the first ones stand
/// for all: what they took when it was recorded is not known anyway.
void measureAnew(const recording::RecordingReader& reader, const TimeRange& range,
                 algorithm::AlgBase& library, const Progress& progress, PacketTimes& times) {
  session::Player player(&library);
  recording::UnitCursor units(reader.entries());
  RunningDistribution us;
  LogarithmicHistogram histogram;
  session::Unit unit;
  const std::int64_t total = reader.callCount();
  std::int64_t calls = 0, firstNs = 0;
  while (us.count() < kMostMeasured && units.next(unit)) {
    if (calls == 0) firstNs = unit[0].call.startNs;
    for (const Entry& entry : player.play(unit)) {
      if (!isPacket(entry.call)) continue;
      if (!range.contains((static_cast<double>(entry.call.startNs) - static_cast<double>(firstNs)) /
                          1e9))
        continue;
      const double duration = static_cast<double>(*entry.call.durationNs) / 1e3;
      us.add(duration);
      histogram.add(duration);
    }
    calls += static_cast<std::int64_t>(unit.size());
    if (progress) progress("measuring", calls, total);
  }
  times = {true, us.get(), histogram.bins()};
}

std::vector<int> objectsIn(const recording::RecordingReader& reader,
                           const std::vector<recording::Configuration>& configurations,
                           const ReportRange& range) {
  std::size_t count = 0;
  for (const recording::Configuration& configuration : configurations)
    count = std::max(count, objectsOf(configuration.productType));
  if (!reader.packetCall(0) || count == 0)
    throw std::runtime_error(reader.path() +
                             ": expected an initialised library and device packets (InputStream "
                             "of stream type 0 or 2), found none");
  if (range.object && (*range.object < 0 || static_cast<std::size_t>(*range.object) >= count))
    throw std::runtime_error(reader.path() + ": expected an object from 0 to " +
                             std::to_string(count - 1) + ", found " +
                             std::to_string(*range.object));
  std::vector<int> objects;
  for (int object = 0; object < static_cast<int>(count); ++object)
    if (!range.object || object == *range.object) objects.push_back(object);
  return objects;
}

}  // namespace

Report makeReport(const recording::RecordingReader& reader, const ReportRules& rules,
                  const ReportRange& range, const std::vector<bodies::Body>& bodies,
                  algorithm::AlgBase& library, const Progress& progress) {
  const std::vector<recording::Configuration> configurations = reader.configurations();
  const std::vector<int> objects = objectsIn(reader, configurations, range);
  Entry entry;
  const std::int64_t firstNs = reader.entries().next(entry) ? entry.call.startNs : 0;
  SideThread thread;
  Gatherer gatherer(reader, configurations, rules, range, objects, bodies, firstNs,
                    recording::frameRateOf(reader), thread);
  {
    const std::int64_t total = reader.callCount();
    std::int64_t calls = 0;
    auto entries = reader.entries();
    while (entries.next(entry)) {
      gatherer.add(entry);
      if (progress) progress("reading", ++calls, total);
    }
  }
  Report report = gatherer.finish(reader);
  if (report.numbers.recording.packets == 0)
    throw std::runtime_error(reader.path() +
                             ": expected packets in the range of --from and --to, found none");
  if (report.numbers.packetTimes.us.count == 0)
    measureAnew(reader, range.time, library, progress, report.numbers.packetTimes);
  return report;
}

}  // namespace analysis
