#include <alg_kit/analysis/Explanation.h>

#include <alg_factory/api/Constants.h>
#include <alg_kit/text/TextFile.h>

#include <cstdio>

namespace analysis {
namespace {

/// Why the library did not decode a packet.
std::string undecodedReason(const session::Entry& entry, bool configured) {
  if (!entry.logs.empty()) {
    std::string message = entry.logs.front().text;
    while (!message.empty() && message.back() == '\n') message.pop_back();
    return "the library refused it: " + text::escaped(message);
  }
  if (!entry.call.pointerGiven && entry.call.length != 0) return "no buffer was given";
  if (entry.call.returned == 0) return "the library refused its length";
  if (entry.call.length == 0) return "it is empty";
  return configured ? "the library delivered nothing" : "the library was not configured yet (Init)";
}

std::string placeText(const algorithm::ResultBlock& block, int object) {
  for (const algorithm::TrackedPoint& record : block.records) {
    if (record.id != object) continue;
    char text[160];
    std::snprintf(text, sizeof text, "%.3f %.3f %.3f", static_cast<double>(record.x),
                  static_cast<double>(record.y), static_cast<double>(record.z));
    return text;
  }
  return "";
}

ObjectExplanation explainObject(const trace::PacketTrace& packet,
                                const algorithm::ResultBlock& block, int object) {
  ObjectExplanation result;
  result.object = object;
  result.end = objectEnd(&packet, &block, object);
  if (!result.end.delivered)
    result.text = "missing: " + result.end.detail;
  else if (result.end.held)
    result.text = "held at " + placeText(block, object) + ": " + result.end.detail;
  else
    result.text = "delivered at " + placeText(block, object);
  return result;
}

}  // namespace

Explanation explainPacket(const recording::RecordingReader& reader, const MomentQuery& query,
                          std::optional<int> object,
                          const std::function<void(std::int64_t call)>& progress) {
  Explanation result;
  result.moment = findMoment(reader, query);
  const auto error = [&](const std::string& expected, const std::string& found) {
    return recording::RecordingError(reader.path(), "expected " + expected + ", found " + found);
  };
  trace::PipelineTrace trace;
  CrossCheck check;
  bool configured = false;
  auto entries = reader.entries();
  for (session::Entry entry; entries.next(entry);) {
    const trace::PacketTrace* const packet = trace.feed(entry.call);
    if (progress) progress(entry.call.index);
    configured |= entry.call.kind == session::CallKind::kInit && entry.call.returned == 1;
    const bool wanted = entry.call.index == result.moment.call;
    check.add(entry, trace.block(), wanted ? std::optional(result.moment) : std::nullopt);
    if (!wanted) continue;
    if (packet == nullptr || !trace.block())
      throw error("a packet that was decoded",
                  textOf(result.moment) + ": " + undecodedReason(entry, configured));
    const int objects = algorithm::objectCount(packet->productType);
    if (object && (*object < 0 || *object >= objects))
      throw error("an object that product type " + std::to_string(packet->productType) + " tracks",
                  std::to_string(*object));
    result.entry = entry;
    result.packet = *packet;
    result.block = *trace.block();
    for (int i = 0; i < objects; ++i)
      if (!object || *object == i)
        result.objects.push_back(explainObject(result.packet, result.block, i));
    result.disagreement = check.problem(reader);
    return result;
  }
  throw error("the call of " + textOf(result.moment), "none");
}

}  // namespace analysis
