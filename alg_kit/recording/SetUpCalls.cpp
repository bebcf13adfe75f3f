#include <alg_kit/recording/SetUpCalls.h>

#include <algorithm>
#include <utility>

namespace recording {

void SetUpCalls::remember(const session::Unit& unit) {
  for (std::size_t i = 0; i < unit.used; ++i) {
    const session::Call& call = unit.entries[i].call;
    if (call.returned != 1) continue;
    switch (call.kind) {
      case session::CallKind::kSetLogCallback:
        calls_[0] = call;
        break;
      case session::CallKind::kSetDataCallback:
        calls_[1] = call;
        break;
      case session::CallKind::kInit:
        calls_[2] = call;
        break;
      case session::CallKind::kSetFilterMode:
        calls_[3] = call;
        break;
      default:
        break;
    }
  }
}

std::vector<session::Entry> SetUpCalls::before(std::int64_t next, std::int64_t startNs) const {
  std::vector<session::Entry> entries;
  for (const auto& call : calls_)
    if (call) entries.emplace_back().call = *call;
  std::sort(entries.begin(), entries.end(), [](const session::Entry& a, const session::Entry& b) {
    return a.call.index < b.call.index;
  });
  std::int64_t index = next - static_cast<std::int64_t>(entries.size());
  for (session::Entry& entry : entries) {
    entry.call.index = index++;
    entry.call.parent.reset();
    entry.call.parentStep = 0;
    entry.call.startNs = startNs;
    entry.call.durationNs.reset();
  }
  return entries;
}

}  // namespace recording
