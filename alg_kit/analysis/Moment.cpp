#include <alg_kit/analysis/Moment.h>

#include <alg_factory/api/Constants.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace analysis {
namespace {

// A time read off a chart or a watch may lie behind the last packet's.
constexpr double kSecondsBehindTheEnd = 1;

std::vector<Moment> momentsOf(const recording::RecordingReader& reader, std::int64_t& lastCall) {
  std::vector<Moment> moments;
  MomentCounter counter;
  auto entries = reader.entries();
  for (session::Entry entry; entries.next(entry);) {
    lastCall = entry.call.index;
    if (const auto moment = counter.next(entry.call)) moments.push_back(*moment);
  }
  return moments;
}

}  // namespace

std::string secondsText(double seconds) {
  char text[400];
  std::snprintf(text, sizeof text, "%.3f s", seconds);
  return text;
}

std::string textOf(const Moment& moment) {
  return "packet " + std::to_string(moment.packet) + ", call " + std::to_string(moment.call) +
         ", " + secondsText(moment.seconds);
}

double MomentCounter::secondsOf(const session::Call& call) {
  if (!firstNs_) firstNs_ = call.startNs;
  return (static_cast<double>(call.startNs) - static_cast<double>(*firstNs_)) / 1e9;
}

std::optional<Moment> MomentCounter::next(const session::Call& call) {
  const double seconds = secondsOf(call);
  if (!isPacket(call)) return std::nullopt;
  return Moment{packets_++, call.index, seconds};
}

Moment findMoment(const recording::RecordingReader& reader, const MomentQuery& query) {
  std::int64_t lastCall = 0;
  const std::vector<Moment> moments = momentsOf(reader, lastCall);
  const auto error = [&](const std::string& expected, const std::string& found) {
    return recording::RecordingError(reader.path(), "expected " + expected + ", found " + found);
  };
  if (moments.empty()) throw error("a packet", "none");
  const Moment& first = moments.front();
  const Moment& last = moments.back();
  if (query.packet) {
    if (*query.packet < 0 || *query.packet > last.packet)
      throw error("a packet number from 0 to " + std::to_string(last.packet),
                  std::to_string(*query.packet));
    return moments[static_cast<std::size_t>(*query.packet)];
  }
  if (query.call) {
    if (*query.call < first.call || *query.call > lastCall)
      throw error("a call from " + std::to_string(first.call) + " (the first packet's) to " +
                      std::to_string(lastCall),
                  std::to_string(*query.call));
    return *std::find_if(moments.rbegin(), moments.rend(),
                         [&](const Moment& moment) { return moment.call <= *query.call; });
  }
  const double time = query.time.value_or(0);
  if (std::isnan(time)) throw error("a time", "none");
  const auto distance = [&](const Moment& moment) { return std::abs(moment.seconds - time); };
  const Moment& nearest = *std::min_element(
      moments.begin(), moments.end(),
      [&](const Moment& a, const Moment& b) { return distance(a) < distance(b); });
  if (distance(nearest) > kSecondsBehindTheEnd && (time > last.seconds || time < first.seconds))
    throw error("a time from " + secondsText(first.seconds) + " to " + secondsText(last.seconds),
                secondsText(time));
  return nearest;
}

}  // namespace analysis
