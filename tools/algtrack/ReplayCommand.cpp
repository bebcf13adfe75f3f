#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/recording/RecordingAlg.h>
#include <alg_kit/recording/UnitCursor.h>
#include <alg_kit/session/Comparison.h>
#include <alg_kit/session/Player.h>
#include <tools/algtrack/Commands.h>
#include <tools/algtrack/PartialRecording.h>
#include <tools/algtrack/SharedLibrary.h>
#include <tools/algtrack/TrackExport.h>
#include <tools/algtrack/terminal/ExitStatus.h>
#include <tools/algtrack/terminal/Options.h>
#include <tools/algtrack/terminal/OutputFile.h>
#include <tools/algtrack/terminal/Progress.h>
#include <tools/algtrack/terminal/Table.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace algtrack {
namespace {

using recording::RecordingReader;
using session::Call;
using session::CallKind;
using session::Entry;
using Clock = std::chrono::steady_clock;

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
  RigOption rig;
  bool force = false;
  bool json = false;
};

struct Counts {
  std::int64_t calls = 0, packets = 0, blocks = 0, messages = 0;
  double seconds = 0;
};

bool isPacket(const Call& call) {
  return call.kind == CallKind::kInputStream && algorithm::isPacketStream(call.type);
}

bool hasCall(const RecordingReader& reader, CallKind kind) {
  return reader.callCount(kind) > 0;
}

std::int64_t firstNsOf(const RecordingReader& reader) {
  Entry entry;
  return reader.entries().next(entry) ? entry.call.startNs : 0;
}

/// Looks for the first difference and counts the calls that differ.
class Verdict {
 public:
  /// @param expected  what should have come; null = the call is missing there
  void compare(const Entry* expected, const Entry* found, bool argumentsToo) {
    ++compared_;
    std::optional<std::string> difference;
    if (expected == nullptr || found == nullptr) {
      const Call& call = (expected != nullptr ? expected : found)->call;
      note(session::titleOf(call) + ": this call is only " +
           (expected != nullptr ? expectedName_ : foundName_));
      return;
    }
    if (argumentsToo)
      difference =
          session::differenceInArguments(expected->call, found->call, expectedName_, foundName_);
    if (!difference)
      difference = session::differenceInOutcome(*expected, *found, expectedName_, foundName_);
    if (difference) note(session::titleOf(found->call) + ": " + *difference);
  }

  void setNames(std::string expected, std::string found) {
    expectedName_ = std::move(expected);
    foundName_ = std::move(found);
  }

  std::int64_t compared() const { return compared_; }
  std::int64_t differing() const { return differing_; }
  const std::string& first() const { return first_; }

 private:
  void note(const std::string& difference) {
    if (differing_++ == 0) first_ = difference;
  }

  std::string expectedName_ = "recorded", foundName_ = "replayed";
  std::int64_t compared_ = 0, differing_ = 0;
  std::string first_;
};

/// The calls of the other recording, in step with ours.
class Against {
 public:
  explicit Against(const std::string& path) : reader_(path), entries_(reader_.entries()) {}

  void compare(const Entry& played, Verdict& verdict) { verdict.compare(next(), &played, true); }
  void finish(Verdict& verdict) {
    while (const Entry* const entry = next()) verdict.compare(entry, nullptr, true);
  }
  const RecordingReader& reader() const { return reader_; }

 private:
  const Entry* next() {
    ended_ = ended_ || !entries_.next(entry_);  // behind its end a cursor must not be asked again
    return ended_ ? nullptr : &entry_;
  }

  RecordingReader reader_;
  recording::EntryCursor entries_;
  Entry entry_;
  bool ended_ = false;
};

/// A second recording of what is replayed, with today's answers and durations. Times stay those of
/// the recorded calls.
class ReRecording {
 public:
  ReRecording(const ReplayOptions& options, const RecordingReader& reader, session::Player& player,
              algorithm::AlgBase* alg)
      : reader_(reader), partial_(options.record, options.force) {
    recording::RecordingAlgOptions recorder;
    recorder.overwrite = true;
    recorder.waitWhenFull = true;
    recorder.clock = [&player] { return player.recordedNs(); };
    recorder.clockName = reader.metadata().clock;
    for (const auto& fact : reader.metadata().values) recorder.facts.insert(fact);
    recorder.facts["replay_of"] = std::filesystem::path(options.file).filename().string();
    alg_.emplace(alg, partial_.path(), recorder);
    player.playThrough(&*alg_);
  }

  void willPlay(const Call& call) {
    if (isPacket(call)) newIndex_[call.index] = alg_->nextIndex();
  }

  void finish() {
    std::vector<session::TruthRow> truth = reader_.truth();
    for (session::TruthRow& row : truth) {
      if (!row.call) continue;
      const auto found = newIndex_.find(*row.call);
      row.call = found == newIndex_.end() ? std::nullopt : std::optional(found->second);
    }
    alg_->addTruth(truth);
    partial_.complete(alg_->close());
  }

 private:
  const RecordingReader& reader_;
  PartialRecording partial_;
  std::optional<recording::RecordingAlg> alg_;
  std::map<std::int64_t, std::int64_t> newIndex_;  ///< of packets
};

/// Holds a call back until as much time has passed as in the recording.
class Pace {
 public:
  explicit Pace(std::int64_t firstNs) : firstNs_(firstNs), begin_(Clock::now()) {}
  void wait(std::int64_t recordedNs) const {
    const double due = (static_cast<double>(recordedNs) - static_cast<double>(firstNs_)) / 1e9;
    const double passed = std::chrono::duration<double>(Clock::now() - begin_).count();
    if (due > passed) std::this_thread::sleep_for(std::chrono::duration<double>(due - passed));
  }

 private:
  std::int64_t firstNs_;
  Clock::time_point begin_;
};

std::vector<std::unique_ptr<TrackExport>> exportsFrom(const ReplayOptions& options,
                                                      const RecordingReader& reader,
                                                      std::int64_t firstNs) {
  const ExportOrigin origin = {std::filesystem::path(options.file).filename().string(),
                               ALG_FACTORY_VERSION, reader.metadata().clock, firstNs};
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

void printSummary(const ReplayOptions& options, const RecordingReader& reader, const Counts& counts,
                  double libraryShare, const Verdict& verdict,
                  const std::vector<std::string>& files) {
  Table table({"quantity", "value"});
  table.addRow({"calls", counts.calls});
  table.addRow({"packets", counts.packets});
  table.addRow({"blocks delivered", counts.blocks});
  table.addRow({"messages", counts.messages});
  table.addRow({"seconds", Cell(counts.seconds, 3)});
  table.addRow(
      {"packets per second",
       Cell(counts.seconds > 0 ? static_cast<double>(counts.packets) / counts.seconds : 0, 0)});
  table.addRow({"share of time in the library, %", Cell(100 * libraryShare, 1)});
  if (verdict.compared() > 0) {
    table.addRow({"calls compared", verdict.compared()});
    table.addRow({"calls that differ", verdict.differing()});
  }
  if (!reader.metadata().complete)
    table.addRow({"the recording was cut off, or still goes on", "yes"});
  if (reader.metadata().droppedCalls > 0)
    table.addRow({"calls that its recorder dropped", reader.metadata().droppedCalls});

  if (options.json) {
    nlohmann::ordered_json json;
    json["file"] = options.file;
    json["summary"] = table.json();
    json["first_difference"] = verdict.first();
    json["files"] = files;
    std::cout << printable(json) << "\n";
    return;
  }
  table.print(std::cout);
  for (const std::string& file : files) std::cout << "Written: " << file << "\n";
  if (verdict.compared() > 0 && verdict.differing() == 0)
    std::cout << "Every returned value, message, block and answer is the same, byte by byte.\n";
}

void replay(const ReplayOptions& options) {
  checkOptions(options);
  const RecordingReader reader(options.file);
  std::optional<Against> against;
  if (!options.against.empty()) against.emplace(options.against);
  const session::WhatIf whatIf = whatIfFrom(options);
  const std::int64_t firstNs = firstNsOf(reader);
  const auto exports = exportsFrom(options, reader, firstNs);

  // Kept: the library has no release operation.
  static algorithm::AlgBase* const alg =
      options.library.empty() ? algorithm::AlgFactory::CreateALG(0) : loadAlg(options.library);
  const bool addFilterMode = whatIf.filterMode && !hasCall(reader, CallKind::kSetFilterMode);
  session::Player player(alg, whatIf, addFilterMode);
  std::optional<ReRecording> reRecording;
  if (!options.record.empty()) reRecording.emplace(options, reader, player, alg);

  Counts counts;
  Verdict verdict;
  if (against) verdict.setNames("there", "here");
  {
    Progress progress("replaying", reader.callCount());
    const Pace pace(firstNs);
    const auto begin = Clock::now();
    recording::UnitCursor units(reader.entries());
    session::Unit unit;
    while (units.next(unit)) {
      if (options.realtime) pace.wait(unit[0].call.startNs);
      if (reRecording) reRecording->willPlay(unit[0].call);
      const session::Unit& played = player.play(unit);
      for (std::size_t i = 0; i < unit.size(); ++i) {
        if (options.verify) verdict.compare(&unit[i], &played[i], false);
        if (against) against->compare(played[i], verdict);
        for (const auto& track : exports) track->add(played[i]);
        ++counts.calls;
        counts.packets += isPacket(played[i].call) ? 1 : 0;
        counts.blocks += static_cast<std::int64_t>(played[i].blocks.size());
        counts.messages += static_cast<std::int64_t>(played[i].logs.size());
      }
      progress.show(counts.calls);
    }
    if (against) against->finish(verdict);
    counts.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  }

  std::vector<std::string> files;
  for (const auto& track : exports) {
    track->commit();
    for (const std::string& file : track->files()) files.push_back(file);
  }
  if (reRecording) {
    reRecording->finish();
    files.push_back(options.record);
  }
  const double libraryShare =
      counts.seconds > 0 ? static_cast<double>(player.libraryNs()) / 1e9 / counts.seconds : 0;
  if (!writesToStandardOutput(options))
    printSummary(options, reader, counts, libraryShare, verdict, files);
  if (verdict.differing() > 0)
    throw SomethingFound(options.file + ": " + verdict.first() + "; " +
                         std::to_string(verdict.differing()) + " of " +
                         std::to_string(verdict.compared()) + " calls differ");
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
      ->check(numberFrom(-1, 1000));
  command->add_flag("--force", options->force, "replace existing files");
  command->add_flag("--json", options->json, "print the summary as JSON");
  command->callback([options] { replay(*options); });
}

}  // namespace algtrack
