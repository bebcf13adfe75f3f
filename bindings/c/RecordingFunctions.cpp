#include <bindings/c/Handles.h>
#include <bindings/c/Host.h>
#include <bindings/c/KitErrors.h>
#include <bindings/c/Records.h>

#include <alg_kit/recording/UnitCursor.h>
#include <alg_kit/session/Comparison.h>
#include <alg_kit/session/Player.h>

#include <cstring>
#include <optional>
#include <stdexcept>

using c_interface::Failure;
using c_interface::give;
using c_interface::guarded;
using c_interface::guardedWithFiles;
using c_interface::Host;
using c_interface::requireGiven;
using c_interface::requireRecord;
using c_interface::requireSize;
using c_interface::taken;
using session::CallKind;
using session::Entry;

namespace {

/// What stands behind an alg_recording.
struct OpenRecording {
  explicit OpenRecording(const char* path) : reader(path) { seek(0); }

  void seek(std::int64_t index) {
    cursor.emplace(reader.entries(index));
    ended = false;
  }

  recording::RecordingReader reader;
  std::optional<recording::EntryCursor> cursor;
  bool ended = false;  ///< behind its end a cursor must not be asked again
  Entry entry;         ///< the call that was read last
  std::string difference;
};

using Recordings = c_interface::Handles<OpenRecording, alg_recording>;

std::shared_ptr<OpenRecording> at(alg_recording* handle) {
  return Recordings::at(handle, "recording");
}

const alg_call* handleOf(const Entry& entry) {
  return reinterpret_cast<const alg_call*>(&entry);
}

/// Calls are the recording's, and not looked for: their handles end with it.
const Entry& entryOf(const alg_call* call) {
  requireGiven(call, "call");
  return *reinterpret_cast<const Entry*>(call);
}

std::optional<recording::Configuration> firstConfiguration(const OpenRecording& opened) {
  const auto configurations = opened.reader.configurations();
  if (configurations.empty()) return std::nullopt;
  return configurations.front();
}

alg_status giveBytes(const session::Bytes& from, const uint8_t** bytes, size_t* size) {
  requireGiven(bytes, "bytes");
  requireGiven(size, "size");
  *bytes = from.data();
  *size = from.size();
  return ALG_OK;
}

/// The answer of a call, of the type that its event gives.
template <typename Answer>
std::optional<Answer> answerOf(const session::Call& call, bool itsEvent) {
  Answer answer;
  if (call.kind != CallKind::kHandleEvent || !itsEvent || call.output.size() != sizeof answer)
    return std::nullopt;
  std::memcpy(&answer, call.output.data(), sizeof answer);
  return answer;
}

session::WhatIf whatIfFrom(const alg_replay_options& options) {
  session::WhatIf whatIf;
  constexpr uint32_t kKnown = ALG_CHANGE_PRODUCT_TYPE | ALG_CHANGE_FILTER_MODE;
  if ((options.changes & ~kKnown) != 0)
    throw Failure(ALG_BAD_ARGUMENT,
                  "options: expected changes of 1 and 2, found " + std::to_string(options.changes));
  if ((options.changes & ALG_CHANGE_PRODUCT_TYPE) != 0) {
    if (!algorithm::isProductType(options.product_type))
      throw Failure(ALG_BAD_ARGUMENT, "options: expected product type 0, 1 or 2, found " +
                                          std::to_string(options.product_type));
    whatIf.productType = options.product_type;
  }
  if ((options.changes & ALG_CHANGE_FILTER_MODE) != 0) whatIf.filterMode = options.filter_mode;
  if (options.calibration != nullptr)
    whatIf.calibration = c_interface::calibrationFrom(options.calibration);
  return whatIf;
}

/// Plays a unit. @throws Failure for one that no host can have made
const session::Unit& play(session::Player& player, const session::Unit& unit) {
  try {
    return player.play(unit);
  } catch (const std::runtime_error& error) {
    throw Failure(ALG_FILE, error.what());
  }
}

/// Plays a recording and compares what comes with what came.
alg_replay_result replay(OpenRecording& opened, const alg_replay_options& options) {
  const session::WhatIf whatIf = whatIfFrom(options);
  const bool addFilterMode =
      whatIf.filterMode && opened.reader.callCount(CallKind::kSetFilterMode) == 0;
  const Host::Replaying replaying(Host::instance());
  session::Player player(&Host::instance().library(), whatIf, addFilterMode);

  alg_replay_result result{};
  result.fresh = replaying.fresh() ? 1 : 0;
  result.first_differing = -1;
  opened.difference.clear();
  recording::UnitCursor units(opened.reader.entries());
  session::Unit unit;
  while (units.next(unit)) {
    const session::Unit& played = play(player, unit);
    for (std::size_t i = 0; i < unit.size(); ++i) {
      ++result.calls;
      const auto difference =
          session::differenceInOutcome(unit[i], played[i], "recorded", "replayed");
      if (difference && ++result.differing == 1) {
        result.first_differing = unit[i].call.index;
        opened.difference = session::titleOf(unit[i].call) + ": " + *difference;
      }
      if (options.on_call == nullptr) continue;
      try {
        options.on_call(handleOf(unit[i]), handleOf(played[i]), options.user);
      } catch (...) {
        throw Failure(ALG_CALLBACK_FAILED, alg_status_text(ALG_CALLBACK_FAILED));
      }
    }
  }
  return result;
}

}  // namespace

alg_status alg_recording_open(const char* path, alg_recording** recording) {
  return guardedWithFiles([&] {
    requireGiven(path, "path");
    requireGiven(recording, "recording");
    *recording = Recordings::open(std::make_shared<OpenRecording>(path));
    return ALG_OK;
  });
}

alg_status alg_recording_close(alg_recording* recording) {
  return guarded([&] {
    Recordings::close(recording, "recording");
    return ALG_OK;
  });
}

alg_status alg_recording_info_of(alg_recording* recording, alg_recording_info* info) {
  return guardedWithFiles([&] {
    const auto opened = at(recording);
    requireRecord(info, "info");
    const recording::Metadata& metadata = opened->reader.metadata();
    const auto configuration = firstConfiguration(*opened);
    alg_recording_info facts{};
    facts.format_version = metadata.formatVersion;
    facts.complete = metadata.complete ? 1 : 0;
    facts.product_type = configuration ? configuration->productType : -1;
    facts.calls = opened->reader.callCount();
    facts.dropped_calls = metadata.droppedCalls;
    give(facts, info);
    return ALG_OK;
  });
}

alg_status alg_recording_fact(alg_recording* recording, const char* key, const char** text) {
  return guarded([&] {
    const auto opened = at(recording);
    requireGiven(key, "key");
    requireGiven(text, "text");
    const auto& values = opened->reader.metadata().values;
    const auto found = values.find(key);
    if (found == values.end()) return ALG_NONE;
    *text = found->second.c_str();
    return ALG_OK;
  });
}

alg_status alg_recording_calibration(alg_recording* recording, alg_calibration* calibration,
                                     size_t size) {
  return guardedWithFiles([&] {
    const auto opened = at(recording);
    requireGiven(calibration, "calibration");
    requireSize(size, sizeof *calibration, "calibration");
    const auto configuration = firstConfiguration(*opened);
    if (!configuration || !configuration->calibration) return ALG_NONE;
    std::memcpy(calibration, &*configuration->calibration, sizeof *calibration);
    return ALG_OK;
  });
}

alg_status alg_recording_next(alg_recording* recording, const alg_call** call) {
  return guardedWithFiles([&] {
    const auto opened = at(recording);
    requireGiven(call, "call");
    opened->ended = opened->ended || !opened->cursor->next(opened->entry);
    if (opened->ended) return ALG_NONE;
    *call = handleOf(opened->entry);
    return ALG_OK;
  });
}

alg_status alg_recording_seek(alg_recording* recording, int64_t index) {
  return guardedWithFiles([&] {
    at(recording)->seek(index);
    return ALG_OK;
  });
}

alg_status alg_call_info_of(const alg_call* call, alg_call_info* info) {
  return guarded([&] {
    const Entry& entry = entryOf(call);
    requireRecord(info, "info");
    const session::Call& from = entry.call;
    alg_call_info numbers{};
    numbers.operation = static_cast<int32_t>(from.kind);
    numbers.index = from.index;
    numbers.parent = from.parent.value_or(-1);
    numbers.start_ns = from.startNs;
    numbers.duration_ns = from.durationNs.value_or(-1);
    numbers.type = from.type;
    numbers.mode = from.mode;
    numbers.length = from.length;
    numbers.returned = from.returned.value_or(-1);
    numbers.block_count = static_cast<uint32_t>(entry.blocks.size());
    numbers.message_count = static_cast<uint32_t>(entry.logs.size());
    give(numbers, info);
    return ALG_OK;
  });
}

alg_status alg_call_payload(const alg_call* call, const uint8_t** bytes, size_t* size) {
  return guarded([&] { return giveBytes(entryOf(call).call.payload, bytes, size); });
}

alg_status alg_call_answer(const alg_call* call, const uint8_t** bytes, size_t* size) {
  return guarded([&] { return giveBytes(entryOf(call).call.output, bytes, size); });
}

alg_status alg_call_pose(const alg_call* call, alg_pose* pose) {
  return guarded([&] {
    const session::Call& from = entryOf(call).call;
    requireRecord(pose, "pose");
    const auto answer = answerOf<algorithm::PoseAnswer>(from, algorithm::isPoseEvent(from.type));
    if (!answer) return ALG_NONE;
    give(c_interface::poseFrom(*answer), pose);
    return ALG_OK;
  });
}

alg_status alg_call_heading(const alg_call* call, alg_heading* heading) {
  return guarded([&] {
    const session::Call& from = entryOf(call).call;
    requireRecord(heading, "heading");
    const auto answer =
        answerOf<algorithm::HeadingAnswer>(from, from.type == algorithm::kHeadingExchange);
    if (!answer) return ALG_NONE;
    give(c_interface::headingFrom(*answer), heading);
    return ALG_OK;
  });
}

alg_status alg_call_block(const alg_call* call, uint32_t number, alg_block* block) {
  return guarded([&] {
    const Entry& entry = entryOf(call);
    requireRecord(block, "block");
    if (number >= entry.blocks.size()) return ALG_NONE;
    give(c_interface::blockFrom(entry.blocks[number].block), block);
    return ALG_OK;
  });
}

alg_status alg_call_message(const alg_call* call, uint32_t number, int32_t* level,
                            const char** text) {
  return guarded([&] {
    const Entry& entry = entryOf(call);
    requireGiven(level, "level");
    requireGiven(text, "text");
    if (number >= entry.logs.size()) return ALG_NONE;
    *level = entry.logs[number].level;
    *text = entry.logs[number].text.c_str();
    return ALG_OK;
  });
}

alg_status alg_recording_replay(alg_recording* recording, const alg_replay_options* options,
                                alg_replay_result* result) {
  return guardedWithFiles([&] {
    const auto opened = at(recording);
    requireRecord(result, "result");
    give(replay(*opened, taken(options, "options")), result);
    return ALG_OK;
  });
}

alg_status alg_recording_difference(alg_recording* recording, const char** text) {
  return guarded([&] {
    const auto opened = at(recording);
    requireGiven(text, "text");
    if (opened->difference.empty()) return ALG_NONE;
    *text = opened->difference.c_str();
    return ALG_OK;
  });
}
