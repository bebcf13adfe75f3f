#include <alg_factory/api/Constants.h>
#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_kit/session/Session.h>

#include <algorithm>
#include <array>
#include <utility>

namespace session {
namespace {

constexpr std::array<std::string_view, 7> kCallNames = {
    "Init",          "InputStream",  "SetDataCallback", "SetLogCallback",
    "SetFilterMode", "GetFixedCode", "HandleEvent"};

}  // namespace

const char* nameOf(CallKind kind) {
  return kCallNames[static_cast<std::size_t>(kind)].data();
}

std::optional<CallKind> callKindNamed(std::string_view name) {
  for (std::size_t i = 0; i < kCallNames.size(); ++i)
    if (name == kCallNames[i]) return static_cast<CallKind>(i);
  return std::nullopt;
}

[[gnu::hot]] Entry& Unit::append() {
  if (used == entries.size()) entries.emplace_back();
  Entry& entry = entries[used];
  entry.logs.clear();
  entry.blocks.clear();
  Bytes payload = std::move(entry.call.payload), output = std::move(entry.call.output);
  payload.clear();
  output.clear();
  entry.call = Call();
  entry.call.payload = std::move(payload);
  entry.call.output = std::move(output);
  ++used;
  return entry;
}

[[gnu::hot]] void Unit::clear() {
  used = 0;
  truth.clear();
}

void copy(const Unit& from, Unit& to) {
  if (to.entries.size() < from.used) to.entries.resize(from.used);
  std::copy_n(from.entries.begin(), from.used, to.entries.begin());
  to.used = from.used;
  to.truth = from.truth;
}

bool isPacket(const Call& call) {
  return call.kind == CallKind::kInputStream && algorithm::isPacketStream(call.type);
}

[[gnu::hot]] std::size_t payloadSize(const Call& call, int productType) {
  if (!call.pointerGiven) return 0;
  switch (call.kind) {
    case CallKind::kInit:
      return sizeof(algorithm::StereoCalibration);
    case CallKind::kInputStream:
      if (!algorithm::isProductType(productType) || call.length < 0) return 0;
      if (algorithm::isPacketStream(call.type)) {
        const auto length = static_cast<std::size_t>(call.length);
        return length < algorithm::leastPayloadSize(call.type) ? 0 : length;
      }
      return algorithm::leastPayloadSize(call.type);
    case CallKind::kHandleEvent:
      return call.outputGiven ? algorithm::eventInputSize(productType, call.type) : 0;
    default:
      return 0;
  }
}

std::optional<SizeProblem> problemInSizes(const Call& call) {
  const auto difference = [](const char* what, std::size_t expected,
                             std::size_t found) -> std::optional<SizeProblem> {
    if (expected == found) return std::nullopt;
    return SizeProblem{std::string(what) + " of " + std::to_string(expected) + " bytes",
                       std::to_string(found)};
  };
  if (!call.payload.empty())
    if (auto problem = difference("a payload", payloadSize(call, 0), call.payload.size()))
      return problem;
  const bool answered =
      call.kind == CallKind::kHandleEvent && call.returned == 1 && call.outputGiven;
  return difference("an output", answered ? answerSize(call.type) : 0, call.output.size());
}

std::size_t answerSize(int eventType) {
  return eventType == algorithm::kHeadingExchange ? sizeof(algorithm::HeadingAnswer)
                                                  : sizeof(algorithm::PoseAnswer);
}

}  // namespace session
