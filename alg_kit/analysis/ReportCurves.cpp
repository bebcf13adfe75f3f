#include <alg_kit/analysis/ReportCurves.h>

#include <algorithm>

namespace analysis {
namespace {

constexpr std::size_t kMostBuckets = 3000;
constexpr std::size_t kMostPathPoints = 3000;
constexpr std::size_t kPresenceBuckets = 1200;

Envelope envelopeOf(const Buckets& buckets, const std::vector<float>& row) {
  return buckets.envelopeOf({row.begin(), row.end()});
}

PlaceCurves placesOf(const Buckets& buckets, const std::vector<Place>& places) {
  PlaceCurves curves;
  if (std::none_of(places.begin(), places.end(), isSomewhere)) return curves;
  std::vector<double> column(places.size());
  for (std::size_t axis = 0; axis < kAxes; ++axis) {
    std::transform(places.begin(), places.end(), column.begin(),
                   [axis](const Place& place) { return axisOf(place, axis); });
    curves[axis] = buckets.envelopeOf(column);
  }
  return curves;
}

Path pathOf(const std::vector<double>& times, const std::vector<Place>& places, double bridge) {
  Path path;
  std::size_t last = 0;
  double present = 0;  // the time up to which the object was there
  for (const std::size_t packet : pathPackets(places, kMostPathPoints)) {
    // Look through the packets that are not drawn: only a true gap ends a line.
    bool broken = false;
    for (std::size_t between = last + 1; !path.empty() && between <= packet; ++between) {
      if (!isSomewhere(places[between])) continue;
      broken = broken || times[between] - present > bridge;
      present = times[between];
    }
    present = times[packet];
    last = packet;
    if (broken) path.push_back(nowhere());
    path.push_back(places[packet]);
  }
  return path;
}

}  // namespace

ReportCurves curvesOf(const ReportData& data, const ReportRules& rules) {
  const Buckets buckets(data.times, kMostBuckets);
  const Buckets coarse(data.times, kPresenceBuckets);
  ReportCurves curves;
  curves.times = buckets.times();
  curves.bucketS = buckets.width();
  curves.presenceTimes = coarse.times();
  for (const ObjectTrack& track : data.objects) {
    ObjectCurves& object = curves.objects.emplace_back();
    object.raw = placesOf(buckets, track.raw);
    object.filtered = placesOf(buckets, track.filtered);
    object.truth = placesOf(buckets, track.truth);
    object.rawError = envelopeOf(buckets, track.rawError);
    object.filteredError = envelopeOf(buckets, track.filteredError);
    object.epipolar = envelopeOf(buckets, track.epipolar);
    object.rayGap = envelopeOf(buckets, track.rayGap);
    object.seen =
        coarse.count([&](std::size_t i) { return track.presence[i] == Presence::kSeen; });
    object.absent =
        coarse.count([&](std::size_t i) { return track.presence[i] == Presence::kAbsent; });
    object.path = pathOf(data.times, track.raw, rules.bridgeS);
    object.truePath = pathOf(data.times, track.truth, rules.bridgeS);
  }
  return curves;
}

}  // namespace analysis
