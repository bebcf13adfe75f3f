#include <alg_kit/analysis/ReplayVerdict.h>

#include <utility>

namespace analysis {

ReplayVerdict::ReplayVerdict(std::string expectedName, std::string foundName)
    : expectedName_(std::move(expectedName)), foundName_(std::move(foundName)) {}

void ReplayVerdict::compare(const session::Entry* expected, const session::Entry* found,
                            const Moment& at, bool argumentsToo) {
  ++compared_;
  const session::Call& call = (found != nullptr ? found : expected)->call;
  const auto note = [&](std::optional<Parting>& first, const session::Difference& difference) {
    if (!first) first = Parting{call, at, difference};
  };
  if (expected == nullptr || found == nullptr) {
    ++differing_;
    note(inArguments_,
         {"", "", "", "this call is only " + (expected != nullptr ? expectedName_ : foundName_)});
    return;
  }
  std::optional<session::Difference> inArguments;
  if (argumentsToo) inArguments = session::findDifferenceInArguments(expected->call, found->call);
  const auto inOutcome = session::findDifferenceInOutcome(*expected, *found);
  if (inArguments) note(inArguments_, *inArguments);
  if (inOutcome) note(inOutcomes_, *inOutcome);
  differing_ += inArguments || inOutcome ? 1 : 0;
}

std::string ReplayVerdict::text() const {
  if (!inArguments_) return inOutcomes_ ? textOf(*inOutcomes_) : "";
  if (!inOutcomes_) return textOf(*inArguments_);
  return textOf(*inArguments_) + "; what comes of the calls parts at " + textOf(*inOutcomes_);
}

std::string ReplayVerdict::textOf(const Parting& parting) const {
  const session::Difference& difference = parting.difference;
  const std::string what =
      difference.field.empty() ? difference.remark : difference.text(expectedName_, foundName_);
  return session::titleOf(parting.call) + ": " + what + " (" +
         (parting.at.packet < 0 ? "" : "packet " + std::to_string(parting.at.packet) + ", ") +
         secondsText(parting.at.seconds) + ")";
}

}  // namespace analysis
