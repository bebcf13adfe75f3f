#include <alg_kit/analysis/ExplainingCommand.h>

#include <alg_kit/text/TextFile.h>

#include <algorithm>
#include <cstdio>

namespace analysis {
namespace {

/// In quotes, in which a shell leaves everything as it is.
std::string quoted(const std::string& text) {
  std::string result = "'";
  for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + "'";
}

/// In the quotes that give a shell every byte by its number: what a terminal shows can be pasted.
std::string quotedBytes(const std::string& text) {
  std::string result = "$'";
  for (const char c : text) {
    if (c >= ' ' && c <= '~' && c != '\'' && c != '\\') {
      result += c;
      continue;
    }
    char byte[8];
    std::snprintf(byte, sizeof byte, "\\%03o",
                  static_cast<unsigned>(static_cast<unsigned char>(c)));
    result += byte;
  }
  return result + "'";
}

/// As one word of a shell's command, and no option.
std::string shellWord(const std::string& file) {
  const bool plain = std::all_of(file.begin(), file.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-' || c == '/';
  });
  const std::string name = !file.empty() && file[0] == '-' ? "./" + file : file;
  if (plain && !name.empty()) return name;
  return text::escaped(name, name.size()) == name ? quoted(name) : quotedBytes(name);
}

std::string withMilliseconds(double seconds) {
  char text[64];
  std::snprintf(text, sizeof text, "%.3f", seconds);
  return text;
}

}  // namespace

std::string explainingCommand(const WorstMoment& moment, const std::string& file) {
  const std::string command = "algtrack inspect " + shellWord(file);
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
