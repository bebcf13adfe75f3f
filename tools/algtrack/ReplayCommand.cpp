#include <alg_factory/api/AlgFactory.h>
#include <alg_factory/api/Constants.h>
#include <alg_kit/analysis/Answers.h>
#include <alg_kit/analysis/MismatchCause.h>
#include <alg_kit/analysis/Moment.h>
#include <alg_kit/analysis/ReplayVerdict.h>
#include <alg_kit/recording/ReRecording.h>
#include <alg_kit/recording/UnitCursor.h>
#include <alg_kit/session/LibraryIdentity.h>
#include <alg_kit/session/Player.h>
#include <alg_kit/session/TimedAlg.h>
#include <tools/algtrack/Asked.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/MomentJson.h>
#include <tools/algtrack/PartialRecording.h>
#include <tools/algtrack/SharedLibrary.h>
#include <tools/algtrack/TrackExport.h>
#include <tools/algtrack/terminal/ExitStatus.h>
#include <tools/algtrack/terminal/MomentOptions.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/OutputFile.h>
#include <tools/algtrack/terminal/Pace.h>
#include <tools/algtrack/terminal/Progress.h>
#include <tools/algtrack/terminal/Table.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace algtrack {
namespace {

using analysis::Moment;
using recording::RecordingReader;
using session::Call;
using session::CallKind;
using session::Entry;
using Clock = std::chrono::steady_clock;

/// Of so many calls one is timed. Prime, since calls come in turns.
constexpr int kTimedCalls = 7;

struct ReplayOptions {
  std::string file;
  bool verify = false;
  std::string library;
  std::string against;
  bool realtime = false;
  std::string csv, jsonLines, tum, record;
  std::string axes = "delivered";
  std::optional<int> productType;
  std::optional<int> filterMode;
  std::optional<int> object;
  analysis::TimeRange range;
  RigOption rig;
  bool force = false;
  bool json = false;
};

struct Counts {
  std::int64_t calls = 0, packets = 0, blocks = 0, messages = 0;
  std::int64_t points = 0, pointsRecorded = 0;  ///< objects in the blocks
  double seconds = 0, librarySeconds = 0;       ///< of this replay
};

std::int64_t pointsOf(const Entry& entry) {
  std::int64_t points = 0;
  for (const session::DeliveredBlock& delivered : entry.blocks)
    for (const algorithm::TrackedPoint& record : delivered.block.records)
      points += record.id != algorithm::kNoObject;
  return points;
}

bool hasCall(const RecordingReader& reader, CallKind kind) {
  return reader.callCount(kind) > 0;
}

/// How far two runs' positions of the same objects lie apart at most.
class Distances {
 public:
  struct Largest {
    double distance = 0;
    int object = 0;
    Moment at;
  };

  void compare(const Entry& expected, const Entry& found, const Moment& at) {
    for (std::size_t i = 0; i < std::min(expected.blocks.size(), found.blocks.size()); ++i)
      for (int k = 0; k < algorithm::ResultBlock::kRecords; ++k) {
        const algorithm::TrackedPoint& a = expected.blocks[i].block.records[k];
        const algorithm::TrackedPoint& b = found.blocks[i].block.records[k];
        if (a.id == b.id && a.id != algorithm::kNoObject)
          keep(blocks_, a.id, std::hypot(a.x - b.x, a.y - b.y, a.z - b.z), at);
      }
    const auto a = analysis::poseOf(expected.call), b = analysis::poseOf(found.call);
    if (!a || !b || a->id != b->id) return;
    const float *const p = a->filtered, *const q = b->filtered;
    keep(answers_, a->id, std::hypot(p[0] - q[0], p[1] - q[1], p[2] - q[2]), at);
  }

  const std::optional<Largest>& ofBlocks() const { return blocks_; }
  const std::optional<Largest>& ofAnswers() const { return answers_; }

 private:
  static void keep(std::optional<Largest>& largest, int object, float distance, const Moment& at) {
    if (!largest || distance > largest->distance) largest = {distance, object, at};
  }

  std::optional<Largest> blocks_, answers_;
};

/// The calls of the other recording, in step with ours.
class Against {
 public:
  explicit Against(const std::string& path) : reader_(path), entries_(reader_.entries()) {}

  /// @param counts  whether the call is in the time that is compared
  void compare(const Entry& played, const Moment& at, bool counts) {
    const Entry* const entry = next();
    if (!counts) return;
    verdict.compare(entry, &played, at, true);
    if (entry != nullptr) distances.compare(*entry, played, at);
  }
  void finish(const Moment& at, const analysis::TimeRange& range) {
    while (const Entry* const entry = next())
      if (range.contains(seconds_)) verdict.compare(entry, nullptr, at, true);
  }

  analysis::ReplayVerdict verdict{"there", "here"};
  Distances distances;

 private:
  const Entry* next() {
    ended_ = ended_ || !entries_.next(entry_);  // behind its end a cursor must not be asked again
    if (ended_) return nullptr;
    seconds_ = times_.secondsOf(entry_.call);
    return &entry_;
  }

  RecordingReader reader_;
  recording::EntryCursor entries_;
  Entry entry_;
  analysis::MomentCounter times_;
  double seconds_ = 0;  ///< of the entry, in its recording
  bool ended_ = false;
};

std::string nameOf(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

/// What the replay does otherwise than the recorded host, as JSON; empty if nothing.
std::string changesText(const ReplayOptions& options) {
  Json changes;
  if (options.productType) changes["product_type"] = *options.productType;
  if (options.rig.given()) changes["calibration"] = nameOf(options.rig.file);
  if (options.filterMode) changes["filter_mode"] = *options.filterMode;
  return changes.is_null() ? "" : compact(changes);
}

/// A second recording, which gets its name when it is complete.
class ReRecording {
 public:
  ReRecording(const ReplayOptions& options, const RecordingReader& reader, session::Player& player,
              algorithm::AlgBase* alg, const algorithm::AlgBase* library)
      : partial_(options.record, options.force),
        recording_(reader, player, alg, library, partial_.path(), factsOf(options)) {}

  void willPlay(const Call& call) { recording_.willPlay(call); }
  void finish() { partial_.complete(recording_.finish()); }

 private:
  static std::map<std::string, std::string> factsOf(const ReplayOptions& options) {
    std::map<std::string, std::string> facts = {{"replay_of", nameOf(options.file)}};
    const std::string changes = changesText(options);
    if (!changes.empty()) facts["replay_changes"] = changes;
    return facts;
  }

  PartialRecording partial_;
  recording::ReRecording recording_;
};

std::vector<std::unique_ptr<TrackExport>> exportsFrom(const ReplayOptions& options,
                                                      const RecordingReader& reader) {
  if (options.object) requireTracked(reader, *options.object, options.productType);
  const ExportOrigin origin = {nameOf(options.file), ALG_FACTORY_VERSION, reader.metadata().clock,
                               options.object};
  std::vector<std::unique_ptr<TrackExport>> exports;
  if (!options.csv.empty()) exports.push_back(makeCsvExport(options.csv, options.force, origin));
  if (!options.jsonLines.empty())
    exports.push_back(makeJsonLinesExport(options.jsonLines, options.force, origin));
  if (!options.tum.empty())
    exports.push_back(makeTumExport(options.tum, options.force, options.axes == "camera", origin));
  return exports;
}

session::WhatIf whatIfFrom(const ReplayOptions& options) {
  session::WhatIf whatIf;
  whatIf.productType = options.productType;
  whatIf.filterMode = options.filterMode;
  if (options.rig.given()) whatIf.calibration = options.rig.read().calibration;
  return whatIf;
}

void checkOptions(const ReplayOptions& options) {
  const bool whatIf = options.productType || options.filterMode || options.rig.given();
  if (options.verify && whatIf)
    throw CLI::ValidationError(
        "--verify",
        "expected the recorded configuration, found --product-type, --calibration or "
        "--filter-mode, with which the answers differ by intent");
  checkTimeRange(options.range);
  const bool exports = !options.csv.empty() || !options.jsonLines.empty() || !options.tum.empty();
  if (options.object && !exports)
    throw std::runtime_error("--object: expected an export (--csv, --jsonl, --tum), found none");
  if (options.range.given() && !exports && !options.verify && options.against.empty())
    throw std::runtime_error(
        "--from and --to: expected an export (--csv, --jsonl, --tum), --verify or --against, found "
        "none");
  checkPrefix("--tum", options.tum);
  if (options.range.given() && !options.record.empty())
    throw std::runtime_error(
        "--record: expected without --from and --to, found both: a recording replays from its "
        "first call only");
  std::vector<std::string> outputs = {options.json ? "-" : "", options.csv, options.jsonLines,
                                      options.record};
  if (!options.tum.empty())
    for (const std::string& file : tumFiles(options.tum)) outputs.push_back(file);
  checkOutputs(outputs, {options.file, options.against, options.rig.file}, options.force);
}

bool writesToStandardOutput(const ReplayOptions& options) {
  return isStandardOutput(options.csv) || isStandardOutput(options.jsonLines) ||
         isStandardOutput(options.record);
}

Json largestJson(const std::optional<Distances::Largest>& largest) {
  if (!largest) return nullptr;
  Json json;
  json["object"] = largest->object;
  json["distance_mm"] = largest->distance;
  json["at"] = momentJson(largest->at);
  return json;
}

void addLargest(Facts& facts, const std::string& what, const std::string& key,
                const std::optional<Distances::Largest>& largest) {
  if (!largest) return;
  char text[40];
  std::snprintf(text, sizeof text, "%.3f mm", largest->distance);
  facts.addText("largest distance of " + what, std::string(text) + ", object " +
                                                   std::to_string(largest->object) + ", " +
                                                   analysis::textOf(largest->at));
  facts.addJson("largest_distance_of_" + key, largestJson(largest));
}

/// What a replay found.
struct Outcome {
  Counts counts;
  std::optional<analysis::ReplayVerdict> verdict;
  std::optional<Distances> distances;
  analysis::Completeness completeness;
  std::string libraryVersion;  ///< of the library that answered
  std::vector<std::string> files;
};

Facts summaryOf(const RecordingReader& reader, const Outcome& outcome) {
  const Counts& counts = outcome.counts;
  const recording::Metadata& metadata = reader.metadata();
  const double seconds = std::max(counts.seconds, 1e-9);
  Facts facts;
  facts.add("calls", "calls", counts.calls);
  facts.add("packets", "packets", counts.packets);
  facts.add("blocks delivered", "blocks", counts.blocks);
  facts.add("points in them", "points", counts.points);
  facts.add("points in the recorded blocks", "points_recorded", counts.pointsRecorded);
  facts.add("messages", "messages", counts.messages);
  facts.add("seconds", "replay_s", Cell(counts.seconds, 3));
  facts.add("packets per second", "packets_per_s",
            Cell(static_cast<double>(counts.packets) / seconds, 0));
  facts.addText("share of time in the library, %", Cell(100 * counts.librarySeconds / seconds, 1));
  facts.addJson("library_s", counts.librarySeconds);
  if (outcome.verdict) {
    facts.add("calls compared", "calls_compared", outcome.verdict->compared());
    facts.add("calls that differ", "calls_differing", outcome.verdict->differing());
    facts.addJson("first_difference",
                  outcome.verdict->differing() > 0 ? Json(outcome.verdict->text()) : Json(nullptr));
  }
  if (outcome.distances) {
    addLargest(facts, "delivered positions", "blocks", outcome.distances->ofBlocks());
    addLargest(facts, "filtered answers", "answers", outcome.distances->ofAnswers());
  }
  if (!metadata.complete) facts.addText("the recording was cut off, or still goes on", "yes");
  facts.addJson("complete", metadata.complete);
  if (metadata.journalMissing)
    facts.addText("its journal (-wal) is not beside it", "the latest calls are in there");
  facts.addJson("journal_missing", metadata.journalMissing);
  if (metadata.droppedCalls > 0)
    facts.addText("calls that its recorder dropped", metadata.droppedCalls);
  facts.addJson("dropped_calls", metadata.droppedCalls);
  return facts;
}

void printSummary(const ReplayOptions& options, const RecordingReader& reader,
                  const Outcome& outcome) {
  const Facts facts = summaryOf(reader, outcome);
  if (options.json) {
    Json json;
    json["file"] = options.file;
    json["summary"] = facts.json();
    json["files"] = outcome.files;
    printJson(json);
    return;
  }
  facts.print(std::cout);
  for (const std::string& file : outcome.files) std::cout << "Written: " << oneLine(file) << "\n";
  if (outcome.verdict && outcome.verdict->compared() > 0 && outcome.verdict->differing() == 0)
    std::cout << "Every returned value, message, block and answer is the same, byte by byte.\n";
}

/// Plays the recording once, into everything that was asked for.
class Replay {
 public:
  explicit Replay(const ReplayOptions& options)
      : options_(options), reader_(options.file), exports_(exportsFrom(options, reader_)) {
    if (!options.against.empty()) against_.emplace(options.against);
    if (options.verify) outcome_.verdict.emplace();
  }

  Outcome run() {
    // Kept: the library has no release operation.
    static algorithm::AlgBase* const library =
        options_.library.empty() ? algorithm::AlgFactory::CreateALG(0) : loadAlg(options_.library);
    static session::TimedAlg alg(library, kTimedCalls);
    const session::WhatIf whatIf = whatIfFrom(options_);
    const bool addFilterMode = whatIf.filterMode && !hasCall(reader_, CallKind::kSetFilterMode);
    session::Player player(&alg, whatIf, addFilterMode);
    player.measureDurations(false);  // the library's time is measured around it
    outcome_.libraryVersion = session::identityOf(*library).version;
    if (outcome_.libraryVersion.empty()) outcome_.libraryVersion = ALG_FACTORY_VERSION;
    std::optional<ReRecording> reRecording;
    if (!options_.record.empty()) reRecording.emplace(options_, reader_, player, &alg, library);
    play(player, reRecording ? &*reRecording : nullptr);
    outcome_.counts.librarySeconds = static_cast<double>(alg.libraryNs()) / 1e9;
    for (const auto& track : exports_) {
      track->commit();
      for (const std::string& file : track->files()) outcome_.files.push_back(file);
    }
    if (reRecording) {
      reRecording->finish();
      outcome_.files.push_back(options_.record);
    }
    if (against_) {
      outcome_.verdict = against_->verdict;
      outcome_.distances = against_->distances;
    }
    return outcome_;
  }

  const RecordingReader& reader() const { return reader_; }

 private:
  void play(session::Player& player, ReRecording* reRecording) {
    Progress progress("replaying", reader_.callCount());
    const auto begin = Clock::now();
    recording::UnitCursor units(reader_.entries());
    session::Unit unit;
    std::optional<Pace> pace;
    while (units.next(unit)) {
      if (!pace) pace.emplace(unit[0].call.startNs);
      if (options_.realtime) pace->wait(unit[0].call.startNs);
      if (reRecording != nullptr) reRecording->willPlay(unit[0].call);
      const session::Unit& played = player.play(unit);
      for (std::size_t i = 0; i < unit.size(); ++i) take(unit[i], played[i]);
      progress.show(outcome_.counts.calls);
    }
    if (against_) against_->finish(at_, options_.range);
    if (options_.range.given() && callsInTime_ == 0)
      throw nothingInTime(reader_, "calls", at_.seconds);
    outcome_.counts.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  }

  void take(const Entry& recorded, const Entry& played) {
    at_.seconds = moments_.secondsOf(recorded.call);
    if (const auto moment = moments_.next(recorded.call)) at_ = *moment;
    outcome_.completeness.add(recorded);
    const bool counts = options_.range.contains(at_.seconds);
    if (outcome_.verdict && counts) outcome_.verdict->compare(&recorded, &played, at_, false);
    if (against_) against_->compare(played, at_, counts);
    ++outcome_.counts.calls;
    outcome_.counts.packets += isPacket(played.call) ? 1 : 0;
    outcome_.counts.blocks += static_cast<std::int64_t>(played.blocks.size());
    outcome_.counts.points += pointsOf(played);
    outcome_.counts.pointsRecorded += pointsOf(recorded);
    outcome_.counts.messages += static_cast<std::int64_t>(played.logs.size());
    if (!counts) return;
    ++callsInTime_;
    for (const auto& track : exports_) track->add(played, at_);
  }

  const ReplayOptions& options_;
  RecordingReader reader_;
  std::optional<Against> against_;
  std::vector<std::unique_ptr<TrackExport>> exports_;
  analysis::MomentCounter moments_;
  std::int64_t callsInTime_ = 0;  ///< that was asked for
  Moment at_ = {-1, -1, 0};       ///< the latest packet, with the latest call's time
  Outcome outcome_;
};

void replay(const ReplayOptions& options) {
  checkOptions(options);
  Replay replay(options);
  const Outcome outcome = replay.run();
  if (!writesToStandardOutput(options)) printSummary(options, replay.reader(), outcome);
  if (!outcome.verdict || outcome.verdict->differing() == 0) return;
  std::string problem = options.file + ": " + outcome.verdict->text() + "; " +
                        std::to_string(outcome.verdict->differing()) + " of " +
                        std::to_string(outcome.verdict->compared()) + " calls differ";
  if (options.verify)
    problem += ": " + analysis::causeOfMismatch(replay.reader().metadata(), outcome.completeness,
                                                outcome.libraryVersion);
  throw SomethingFound(problem);
}

}  // namespace

void addReplayCommand(CLI::App& app) {
  const auto options = std::make_shared<ReplayOptions>();
  CLI::App* const command = app.add_subcommand(
      "replay",
      "Makes the recorded calls again, in the recorded order, and compares or exports what comes.\n"
      "\n"
      "  algtrack replay walk.algrec --verify              the same bytes as recorded?\n"
      "  algtrack replay walk.algrec --csv walk.csv        positions, while it goes\n"
      "  algtrack replay walk.algrec --csv - --object 1 --from 4 --to 7 | head\n"
      "  algtrack replay walk.algrec --tum walk            walk-object0.tum, walk-object1.tum, "
      "...\n"
      "  algtrack replay walk.algrec --filter-mode 1 --record smooth.algrec\n"
      "  algtrack replay walk.algrec --against smooth.algrec   where do they part?\n");
  command->add_option("file", options->file, "the recording")->required();
  CLI::Option* const verify = command->add_flag(
      "--verify", options->verify,
      "compare every returned value, message, block and answer with the recorded one, byte by "
      "byte; name the first that differs and fail");
  command
      ->add_option("--against", options->against,
                   "the same comparison with another recording, arguments included")
      ->excludes(verify);
  command->add_option(
      "--library", options->library,
      "play through this shared library, whose code then runs, not through the copy "
      "within algtrack: proves what a host loads");
  command->add_flag("--realtime", options->realtime, "at the recorded pace, not at full speed");
  command->add_option("--csv", options->csv, "write positions as CSV");
  command->add_option("--jsonl", options->jsonLines,
                      "write blocks, answers and messages as JSON Lines");
  CLI::Option* const tum = command->add_option(
      "--tum", options->tum, "write one TUM trajectory per object, PREFIX-objectN.tum");
  command
      ->add_option("--axes", options->axes,
                   "of the TUM trajectories: delivered, or camera (before y and z are mirrored)")
      ->check(oneOf({"delivered", "camera"}))
      ->capture_default_str()
      ->needs(tum);
  command->add_option("--record", options->record,
                      "record the replay: the recorded times, today's answers and durations");
  command
      ->add_option("--product-type", options->productType,
                   "what if: another product type in every Init")
      ->check(oneOf({"0", "1", "2"}));
  addRigOption(*command, options->rig, "what if: another calibration in every Init");
  command
      ->add_option("--filter-mode", options->filterMode,
                   "what if: another mode in every SetFilterMode (set after Init if there is none)")
      ->check(wholeNumberFrom(-1, 1000));
  addObjectOption(*command, options->object, "export this object alone");
  addTimeRangeOptions(*command, options->range);
  command->add_flag("--force", options->force, "replace existing files");
  command->add_flag("--json", options->json, "print the summary as JSON");
  command->callback([options] { replay(*options); });
}

}  // namespace algtrack
