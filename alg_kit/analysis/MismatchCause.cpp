#include <alg_kit/analysis/MismatchCause.h>

namespace analysis {

using session::CallKind;

void Completeness::add(const session::Entry& entry) {
  const session::Call& call = entry.call;
  if (call.index > next_) {
    missing_ += call.index - next_;
    if (!firstMissing_) firstMissing_ = next_;
  }
  next_ = call.index + 1;
  if (call.kind == CallKind::kInit && call.returned == 1) initialised_ = true;
  if (!entry.blocks.empty() && !initialised_) beganLate_ = true;
}

std::string causeOfMismatch(const recording::Metadata& metadata, const Completeness& completeness,
                            const std::string& runningVersion) {
  std::string causes;
  const auto add = [&](const std::string& cause) {
    causes += (causes.empty() ? "" : "; ") + cause;
  };
  if (completeness.missingCalls() > 0)
    add(std::to_string(completeness.missingCalls()) + " calls are missing in the recording, from " +
        "call " + std::to_string(*completeness.firstMissing()) + " on" +
        (metadata.droppedCalls > 0
             ? " (its recorder dropped " + std::to_string(metadata.droppedCalls) + ")"
             : ""));
  else if (metadata.droppedCalls > 0)
    add("its recorder dropped " + std::to_string(metadata.droppedCalls) + " calls");
  if (completeness.beganLate())
    add("the recording did not begin with the host's first call: the library was initialised "
        "before");
  if (metadata.libraryVersion != runningVersion)
    add("recorded with library version " + metadata.libraryVersion + ", run with " +
        runningVersion);
  if (causes.empty())
    add("the library versions are the same (" + runningVersion +
        ") and no call is missing: the file was changed, the library had been used before the "
        "recording began, or the platform differs (recorded on " +
        metadata.platform + ")");
  return causes;
}

}  // namespace analysis
