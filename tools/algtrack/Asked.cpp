#include <tools/algtrack/Asked.h>

#include <alg_factory/api/Constants.h>

#include <algorithm>
#include <string>

namespace algtrack {

void requireTracked(const recording::RecordingReader& reader, int object,
                    std::optional<int> productType) {
  int objects = 0;
  for (const recording::Configuration& configuration : reader.configurations())
    objects =
        std::max(objects, algorithm::objectCount(productType.value_or(configuration.productType)));
  if (object < objects) return;
  throw recording::RecordingError(
      reader.path(), objects == 0
                         ? std::string("expected a configuration (Init) in it, found none")
                         : "expected an object that its product type tracks, 0 to " +
                               std::to_string(objects - 1) + ", found " + std::to_string(object));
}

void requirePackets(const recording::RecordingReader& reader, const analysis::TimeRange& range) {
  analysis::MomentCounter moments;
  auto entries = reader.entries();
  double end = 0;
  for (session::Entry entry; entries.next(entry);) {
    end = moments.secondsOf(entry.call);
    if (const auto moment = moments.next(entry.call); moment && range.contains(moment->seconds))
      return;
  }
  throw nothingInTime(reader, "packets", end);
}

recording::RecordingError nothingInTime(const recording::RecordingReader& reader,
                                        const char* expected, double end) {
  return {reader.path(), "expected " + std::string(expected) +
                             " in that time, found none (the recording ends at " +
                             analysis::secondsText(end) + ")"};
}

}  // namespace algtrack
