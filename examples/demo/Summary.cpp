#include <examples/demo/Summary.h>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <numeric>
#include <ostream>
#include <sstream>
#include <string>

namespace demo {
namespace {

struct Distance {
  double rms = 0;
  double largest = 0;
  int frames = 0;  // in which there was a position
};

std::string millimetres(double value, const Distance& distance) {
  if (distance.frames == 0) return "-";
  std::ostringstream text;
  text << std::fixed << std::setprecision(2) << value;
  return text.str();
}

template <typename Position>
Distance distanceToTruth(const Run& run, int object, Position position) {
  Distance distance;
  double sum = 0;
  for (const auto& frame : run.frames) {
    const ObjectSample& sample = frame[static_cast<std::size_t>(object)];
    const auto& p = position(sample);
    if (!p) continue;
    const double d = (*p - sample.truth).norm();
    distance.largest = std::max(distance.largest, d);
    sum += d * d;
    ++distance.frames;
  }
  if (distance.frames > 0) distance.rms = std::sqrt(sum / distance.frames);
  return distance;
}

int framesSeen(const Run& run, int object) {
  return static_cast<int>(
      std::count_if(run.frames.begin(), run.frames.end(), [object](const auto& frame) {
        return frame[static_cast<std::size_t>(object)].raw.has_value();
      }));
}

// A position that is delivered again to the last bit although the object moved.
int framesHeld(const Run& run, int object) {
  int held = 0;
  for (std::size_t n = 1; n < run.frames.size(); ++n) {
    const auto& before = run.frames[n - 1][static_cast<std::size_t>(object)];
    const auto& now = run.frames[n][static_cast<std::size_t>(object)];
    if (before.raw && now.raw && *before.raw == *now.raw && before.truth != now.truth) ++held;
  }
  return held;
}

// The smallest measured value that `share` of all values do not exceed.
double percentile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  const auto rank = static_cast<std::size_t>(std::ceil(share * static_cast<double>(values.size())));
  const auto position =
      values.begin() + static_cast<std::ptrdiff_t>(std::max<std::size_t>(rank, 1) - 1);
  std::nth_element(values.begin(), position, values.end());
  return *position;
}

void printRun(std::ostream& out, const Run& run) {
  const double seconds =
      std::accumulate(run.microseconds.begin(), run.microseconds.end(), 0.0) * 1e-6;
  out << run.title << "\n"
      << std::fixed << "  packets " << run.packets << ", delivered blocks " << run.blocks << ", "
      << std::setprecision(0) << (seconds > 0 ? run.blocks / seconds : 0)
      << " blocks/s inside the library\n"
      << std::setprecision(2) << "  time per packet: median " << percentile(run.microseconds, 0.5)
      << " us, 99th percentile " << percentile(run.microseconds, 0.99) << " us\n\n"
      << "                    raw: distance to truth   filtered\n"
      << "  object    seen    RMS mm      max mm       RMS mm    max mm    held\n";
  for (int object = 0; object < run.objects; ++object) {
    const auto raw = distanceToTruth(run, object, [](const auto& s) { return s.raw; });
    const auto filtered = distanceToTruth(run, object, [](const auto& s) { return s.filtered; });
    const double share = 100.0 * framesSeen(run, object) / std::max(run.packets, 1);
    out << "  " << std::setw(6) << object << std::setprecision(1) << std::setw(7) << share << "%"
        << std::setw(10) << millimetres(raw.rms, raw) << std::setw(12)
        << millimetres(raw.largest, raw) << std::setw(13) << millimetres(filtered.rms, filtered)
        << std::setw(10) << millimetres(filtered.largest, filtered) << std::setw(8)
        << framesHeld(run, object) << "\n";
  }
  out << "\n  log lines:";
  if (run.logLines.empty()) out << " none";
  const char* separator = " ";
  for (const auto& [text, count] : run.logLines) {
    out << separator << count << " x \"" << text << "\"";
    separator = ", ";
  }
  out << "\n\n";
}

}  // namespace

void printSummary(std::ostream& out, const std::vector<Run>& runs) {
  for (const Run& run : runs) printRun(out, run);
  out << "seen: frames whose block carries the object. held: frames in which the library repeated "
         "the\n"
         "previous position, by its tests for jumps and for the size of the two markers.\n";
  const auto stamped = std::any_of(runs.begin(), runs.end(), [](const Run& run) {
    return run.logLines.count("alg: fpga: check byte error.") > 0;
  });
  if (stamped)
    out << "check byte error: with a stamp before it, the decoder sees four zero bytes after the\n"
           "packet and reports that; the packet's records are delivered all the same.\n";
}

}  // namespace demo
