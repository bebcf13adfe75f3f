#include <tools/algtrack/CrossCheck.h>

#include <tools/algtrack/Inspect.h>
#include <tools/algtrack/terminal/ExitStatus.h>

#include <cstring>

namespace algtrack {

void CrossCheck::add(const session::Entry& entry,
                     const std::optional<algorithm::ResultBlock>& block,
                     const std::optional<analysis::Moment>& moment, bool compares) {
  completeness_.add(entry);
  if (!compares || !moment) return;
  if (entry.blocks.empty() && !block) return;
  ++compared_;
  const bool equal = entry.blocks.size() == 1 && block &&
                     std::memcmp(&entry.blocks[0].block, &*block, sizeof *block) == 0;
  if (equal) {
    ++equal_;
  } else if (!firstDifference_) {
    firstDifference_ = moment;
  }
}

std::string CrossCheck::text() const {
  return std::to_string(equal_) + " of " + std::to_string(compared_) +
         " delivered blocks are those that the trace arrives at, byte by byte";
}

Json CrossCheck::json() const {
  Json json;
  json["compared"] = compared_;
  json["equal"] = equal_;
  json["first_difference"] = firstDifference_ ? momentJson(*firstDifference_) : Json(nullptr);
  return json;
}

void CrossCheck::requireAgreement(const recording::RecordingReader& reader) const {
  if (!firstDifference_) return;
  throw SomethingFound(
      reader.path() + ": the trace arrives at other blocks than the recorded ones (" +
      std::to_string(compared_ - equal_) + " of " + std::to_string(compared_) + ", first at " +
      analysis::textOf(*firstDifference_) +
      "): " + analysis::causeOfMismatch(reader.metadata(), completeness_, ALG_FACTORY_VERSION));
}

}  // namespace algtrack
