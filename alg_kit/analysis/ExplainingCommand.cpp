#include <alg_kit/analysis/ExplainingCommand.h>

#include <algorithm>
#include <cstdio>

namespace analysis {
namespace {

/// In quotes, in which a shell leaves everything as it is.
std::string quoted(const std::string& text) {
  const bool plain = std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-' || c == '/';
  });
  if (plain && !text.empty() && text[0] != '-') return text;
  std::string result = text[0] == '-' ? "'./" : "'";
  for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + "'";
}

std::string withMilliseconds(double seconds) {
  char text[64];
  std::snprintf(text, sizeof text, "%.3f", seconds);
  return text;
}

}  // namespace

std::string explainingCommand(const WorstMoment& moment, const std::string& file) {
  const std::string command = "algtrack inspect " + quoted(file);
  if (moment.kind == WorstMoment::Kind::kCorrupt)
    return command + " --packet " + std::to_string(moment.first.packet);
  if (moment.kind != WorstMoment::Kind::kGap)
    return command + " --explain " + std::to_string(moment.first.packet);
  // A little more than the gap, so that rounding leaves no packet of it out.
  return command + " --object " + std::to_string(moment.object) + " --from " +
         withMilliseconds(std::max(moment.first.seconds - 0.001, 0.0)) + " --to " +
         withMilliseconds(moment.last.seconds + 0.002);
}

}  // namespace analysis
