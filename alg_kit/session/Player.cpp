#include <alg_kit/session/MonotonicClock.h>
#include <alg_kit/session/Player.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <numeric>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace session {
namespace {

constexpr std::size_t kDeepest = 32;  // calls inside callbacks inside calls
// Where a changed product type makes a query read a stamp that was not recorded: the stamp that
// asks for the filter's state.

/// A call's bytes as the host had them: `offset` behind the start of a buffer of their own, which
/// ends with them. An offset that nobody can follow (negative, far away) is left out.
class HostBuffer {
 public:
  explicit HostBuffer(const Call& call)
      : given_(!call.payload.empty()),
        offset_(call.offset > 0 && call.offset <= kFarthest ? call.offset : 0) {
    if (!given_) return;
    bytes_.resize(static_cast<std::size_t>(offset_) + call.payload.size());
    std::copy(call.payload.begin(), call.payload.end(), bytes_.begin() + offset_);
  }
  const unsigned char* start() const { return given_ ? bytes_.data() : nullptr; }
  int offset() const { return offset_; }

 private:
  static constexpr int kFarthest = 4096;
  bool given_;
  int offset_;
  Bytes bytes_;
};

/// Stands for whatever the host's sink threw.
class SinkThrew : public std::exception {
 public:
  const char* what() const noexcept override { return "the recorded sink threw"; }
};

}  // namespace

Player::Player(algorithm::AlgBase* alg, WhatIf whatIf, bool addFilterMode)
    : alg_(alg), whatIf_(std::move(whatIf)), addFilterMode_(addFilterMode) {
  // The library uses its sinks without a test: a file that never sets them must not crash us.
  alg_->SetLogCallback(this);
  alg_->SetDataCallback(this);
}

const Unit& Player::play(const Unit& unit) {
  recorded_ = &unit;
  played_.clear();
  while (played_.size() < unit.size()) played_.append();
  done_.assign(unit.size(), false);
  looks_ = 0;
  sortNested();
  playCall(0);
  // Calls whose parent is not in this unit.
  for (std::size_t place = 1; place < unit.size(); ++place)
    if (!done_[place]) playCall(place);
  return played_;
}

// By parent and step, so that each callback finds its calls without a look at all others: a unit of
// thousands of calls would take millions of looks.
void Player::sortNested() {
  const Unit& unit = *recorded_;
  nested_.clear();
  firstNested_.assign(unit.size() + 1, 0);
  for (std::size_t place = 1; place < unit.size(); ++place) {
    const Call& call = unit[place].call;
    const Entry* const end = unit.begin() + place;
    const Entry* const parent = call.parent
                                    ? std::lower_bound(unit.begin(), end, *call.parent,
                                                       [](const Entry& entry, std::int64_t index) {
                                                         return entry.call.index < index;
                                                       })
                                    : end;
    if (parent != end && parent->call.index == *call.parent)
      nested_.push_back({static_cast<std::size_t>(parent - unit.begin()), call.parentStep, place});
  }
  std::sort(nested_.begin(), nested_.end(), [](const Nested& a, const Nested& b) {
    return std::tie(a.parent, a.step, a.place) < std::tie(b.parent, b.step, b.place);
  });
  for (const Nested& nested : nested_) ++firstNested_[nested.parent + 1];
  std::partial_sum(firstNested_.begin(), firstNested_.end(), firstNested_.begin());
}

void Player::playCall(std::size_t place) {
  if (running_.size() == kDeepest)
    throw std::runtime_error("call " + std::to_string((*recorded_)[place].call.index) +
                             ": expected at most " + std::to_string(kDeepest) +
                             " calls inside each other, found more");
  done_[place] = true;
  const Entry& recorded = (*recorded_)[place];
  Entry& played = played_[place];
  played.call = recorded.call;
  played.call.output.clear();
  played.call.durationNs.reset();
  recordedNs_ = recorded.call.startNs;

  running_.push_back({place, 0, firstNested_[place]});
  const std::int64_t begin = measures_ ? monotonicNs() : 0;
  try {
    played.call.returned = perform(played.call);
  } catch (const SinkThrew&) {
    played.call.returned = std::nullopt;
  }
  if (measures_) played.call.durationNs = monotonicNs() - begin;
  running_.pop_back();

  if (played.call.kind == CallKind::kInit && addFilterMode_)
    alg_->SetFilterMode(0, *whatIf_.filterMode, nullptr);
  // With a what-if a callback may stay away; the calls from inside it still belong to the host.
  for (std::size_t i = firstNested_[place]; i < firstNested_[place + 1]; ++i, ++looks_)
    if (!done_[nested_[i].place]) playCall(nested_[i].place);
}

std::optional<int> Player::perform(Call& call) {
  switch (call.kind) {
    case CallKind::kInit: {
      if (whatIf_.productType) call.type = *whatIf_.productType;
      if (whatIf_.calibration && !call.payload.empty())
        std::memcpy(call.payload.data(), &*whatIf_.calibration, sizeof *whatIf_.calibration);
      const HostBuffer buffer(call);
      return alg_->Init(call.type, buffer.start(), buffer.offset());
    }
    case CallKind::kInputStream: {
      // Without recorded bytes the library read none: a null pointer is refused as quietly.
      const HostBuffer buffer(call);
      return alg_->InputStream(call.type, buffer.start(), buffer.offset(), call.length);
    }
    case CallKind::kSetDataCallback:
      return alg_->SetDataCallback(call.pointerGiven ? this : nullptr);
    case CallKind::kSetLogCallback:
      return alg_->SetLogCallback(call.pointerGiven ? this : nullptr);
    case CallKind::kSetFilterMode:
      if (whatIf_.filterMode) call.mode = *whatIf_.filterMode;
      return alg_->SetFilterMode(call.type, call.mode, nullptr);
    case CallKind::kGetFixedCode:
      return alg_->GetFixedCode();
    case CallKind::kHandleEvent: {
      std::array<std::uint8_t, sizeof(algorithm::OrientationSample)> input{};
      const std::uint64_t stamp = algorithm::kFilterStateStamp;
      std::memcpy(input.data(), &stamp, sizeof stamp);
      std::copy(call.payload.begin(), call.payload.end(), input.begin());
      std::array<std::uint8_t, sizeof(algorithm::PoseAnswer)> output{};
      const bool answered = alg_->HandleEvent(call.type, call.pointerGiven ? input.data() : nullptr,
                                              call.outputGiven ? output.data() : nullptr);
      if (answered && call.outputGiven)
        call.output.assign(output.begin(),
                           output.begin() + static_cast<std::ptrdiff_t>(answerSize(call.type)));
      return answered;
    }
  }
  return std::nullopt;
}

void Player::playNested() {
  const std::size_t depth = running_.size() - 1;
  const std::size_t end = firstNested_[running_[depth].place + 1];
  const int step = running_[depth].steps - 1;
  for (; running_[depth].next < end; ++looks_) {
    const Nested& nested = nested_[running_[depth].next];
    if (nested.step > step) return;
    ++running_[depth].next;  // first: calls inside calls move `running_`
    if (nested.step == step && !done_[nested.place]) playCall(nested.place);
  }
}

bool Player::threwAt(std::size_t place, int step) const {
  const Entry& recorded = (*recorded_)[place];
  const auto here = [step](const auto& callback) {
    return callback.step == step && callback.threw;
  };
  return std::any_of(recorded.logs.begin(), recorded.logs.end(), here) ||
         std::any_of(recorded.blocks.begin(), recorded.blocks.end(), here);
}

bool Player::Deliver(const void* buffer, int offset, int length) {
  if (running_.empty() || length != sizeof(algorithm::ResultBlock)) return true;
  const std::size_t place = running_.back().place;
  const int step = running_.back().steps++;
  const bool throws = threwAt(place, step);
  DeliveredBlock& delivered = played_[place].blocks.emplace_back();
  delivered.step = step;
  delivered.threw = throws;
  std::memcpy(&delivered.block, static_cast<const unsigned char*>(buffer) + offset,
              sizeof delivered.block);
  playNested();
  if (throws) throw SinkThrew();
  return true;
}

bool Player::Log(int level, const char* message) {
  if (running_.empty()) return true;
  const std::size_t place = running_.back().place;
  const int step = running_.back().steps++;
  const bool throws = threwAt(place, step);
  played_[place].logs.push_back({step, level, message, throws});
  playNested();
  if (throws) throw SinkThrew();
  return true;
}

}  // namespace session
