#include <alg_kit/analysis/CrossCheck.h>

#include <alg_factory/api/Version.h>

#include <cstring>

namespace analysis {

void CrossCheck::add(const session::Entry& entry,
                     const std::optional<algorithm::ResultBlock>& block,
                     const std::optional<Moment>& moment, bool compares) {
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

std::optional<std::string> CrossCheck::problem(const recording::RecordingReader& reader) const {
  if (!firstDifference_) return std::nullopt;
  return reader.path() + ": the trace arrives at other blocks than the recorded ones (" +
         std::to_string(compared_ - equal_) + " of " + std::to_string(compared_) + ", first at " +
         textOf(*firstDifference_) +
         "): " + causeOfMismatch(reader.metadata(), completeness_, ALG_FACTORY_VERSION);
}

}  // namespace analysis
