#include <alg_kit/recording/FrameRate.h>

#include <alg_factory/api/Constants.h>
#include <alg_kit/recording/Recording.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

namespace recording {
namespace {

constexpr double kNanosecond = 1e-9;
constexpr double kUsualRate = 90;  // Hz

}  // namespace

double frameRateOf(const RecordingReader& reader, std::size_t most) {
  std::vector<std::int64_t> distances;
  std::optional<std::int64_t> last;
  auto entries = reader.entries();
  session::Entry entry;
  while (distances.size() < most && entries.next(entry)) {
    if (!isPacket(entry.call)) continue;
    if (last && entry.call.startNs > *last) distances.push_back(entry.call.startNs - *last);
    last = entry.call.startNs;
  }
  if (distances.empty()) return kUsualRate;
  const auto middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
  std::nth_element(distances.begin(), middle, distances.end());
  return 1 / (static_cast<double>(*middle) * kNanosecond);
}

}  // namespace recording
