#include <alg_kit/session/Comparison.h>

#include <alg_factory/service/HeadingAnswer.h>
#include <alg_factory/service/PoseAnswer.h>
#include <alg_factory/service/ResultBlock.h>

#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

namespace session {
namespace {

enum class FieldType { kInt32, kUint32, kUint64, kFloat };

struct Field {
  std::string name;
  std::size_t offset;
  FieldType type;
};

std::size_t sizeOf(FieldType type) {
  return type == FieldType::kUint64 ? 8 : 4;
}

template <typename T>
T read(const std::uint8_t* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

std::string valueText(const Field& field, const std::uint8_t* bytes) {
  bytes += field.offset;
  switch (field.type) {
    case FieldType::kInt32:
      return std::to_string(read<std::int32_t>(bytes));
    case FieldType::kUint32:
      return std::to_string(read<std::uint32_t>(bytes));
    case FieldType::kUint64:
      return std::to_string(read<std::uint64_t>(bytes));
    case FieldType::kFloat: {
      char text[40];
      std::snprintf(text, sizeof text, "%.9g", static_cast<double>(read<float>(bytes)));
      return text;
    }
  }
  return {};
}

void addFloats(std::vector<Field>& fields, const std::string& name, std::size_t offset,
               std::initializer_list<const char*> parts) {
  for (const char* const part : parts) {
    fields.push_back({name + part, offset, FieldType::kFloat});
    offset += sizeof(float);
  }
}

std::vector<Field> blockFields() {
  using algorithm::ResultBlock;
  using algorithm::TrackedPoint;
  std::vector<Field> fields = {{"header", 0, FieldType::kUint64}};
  for (std::size_t k = 0; k < ResultBlock::kRecords; ++k) {
    const std::size_t at = offsetof(ResultBlock, records) + k * sizeof(TrackedPoint);
    const std::string record = "record " + std::to_string(k) + ", ";
    fields.push_back({record + "id", at, FieldType::kInt32});
    addFloats(fields, record, at + offsetof(TrackedPoint, x), {"x", "y", "z"});
    addFloats(fields, record + "host position ", at + offsetof(TrackedPoint, hostPosition),
              {"0", "1", "2"});
    addFloats(fields, record + "host orientation ", at + offsetof(TrackedPoint, hostOrientation),
              {"0", "1", "2", "3"});
    addFloats(fields, record, at + offsetof(TrackedPoint, reserved), {"reserved", "bearing"});
  }
  return fields;
}

std::vector<Field> poseFields() {
  using algorithm::PoseAnswer;
  std::vector<Field> fields = {{"id", 0, FieldType::kInt32}};
  addFloats(fields, "raw ", offsetof(PoseAnswer, raw), {"x", "y", "z"});
  addFloats(fields, "rate ", offsetof(PoseAnswer, rate), {"x", "y", "z"});
  addFloats(fields, "filtered ", offsetof(PoseAnswer, filtered), {"x", "y", "z"});
  addFloats(fields, "second rate ", offsetof(PoseAnswer, rateCopy), {"x", "y", "z"});
  return fields;
}

std::vector<Field> headingFields() {
  using algorithm::HeadingAnswer;
  std::vector<Field> fields;
  addFloats(fields, "orientation ", 0, {"0", "1", "2", "3"});
  addFloats(fields, "", offsetof(HeadingAnswer, yaw), {"yaw", "negated corrected yaw"});
  fields.push_back({"status", offsetof(HeadingAnswer, status), FieldType::kInt32});
  fields.push_back({"bytes 28 to 31", offsetof(HeadingAnswer, notWritten1), FieldType::kUint32});
  fields.push_back({"value", offsetof(HeadingAnswer, value), FieldType::kUint64});
  fields.push_back({"score", offsetof(HeadingAnswer, score), FieldType::kFloat});
  fields.push_back({"bytes 44 to 47", offsetof(HeadingAnswer, notWritten2), FieldType::kUint32});
  return fields;
}

/// In quotes, without the newline at its end, and fit for a terminal.
std::string quoted(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  for (char& c : text)
    if (c < ' ' || c > '~') c = '?';
  return "\"" + text + "\"";
}

std::string hex(const std::uint8_t* bytes, std::size_t size) {
  std::string text;
  char digits[8];
  for (std::size_t i = 0; i < size; ++i) {
    std::snprintf(digits, sizeof digits, "%s%02X", i > 0 ? " " : "", bytes[i]);
    text += digits;
  }
  return text;
}

template <typename Number>
std::optional<Difference> inNumbers(const std::string& what, Number expected, Number found) {
  if (expected == found) return std::nullopt;
  return Difference{what, std::to_string(expected), std::to_string(found), ""};
}

std::optional<Difference> inTexts(const std::string& what, const std::string& expected,
                                  const std::string& found) {
  if (expected == found) return std::nullopt;
  return Difference{what, quoted(expected), quoted(found), ""};
}

/// Both have the size that the fields describe; between them the fields cover every byte.
std::optional<Difference> inFields(const std::string& what, const std::vector<Field>& fields,
                                   const std::uint8_t* expected, const std::uint8_t* found) {
  for (const Field& field : fields) {
    if (std::memcmp(expected + field.offset, found + field.offset, sizeOf(field.type)) == 0)
      continue;
    std::string a = valueText(field, expected), b = valueText(field, found);
    if (a == b) {  // two kinds of nan, two zeros
      a += " (" + hex(expected + field.offset, sizeOf(field.type)) + ")";
      b += " (" + hex(found + field.offset, sizeOf(field.type)) + ")";
    }
    return Difference{what + field.name, a, b, ""};
  }
  return std::nullopt;
}

std::optional<Difference> inBytes(const std::string& what, const Bytes& expected,
                                  const Bytes& found) {
  if (expected.size() != found.size())
    return Difference{what, std::to_string(expected.size()) + " bytes",
                      std::to_string(found.size()) + " bytes", ""};
  for (std::size_t i = 0; i < expected.size(); ++i)
    if (expected[i] != found[i])
      return Difference{what + ", byte " + std::to_string(i), hex(&expected[i], 1),
                        hex(&found[i], 1), ""};
  return std::nullopt;
}

bool same(const LogLine& a, const LogLine& b) {
  return a.text == b.text && a.level == b.level && a.step == b.step;
}

bool same(const DeliveredBlock& a, const DeliveredBlock& b) {
  return std::memcmp(&a.block, &b.block, sizeof a.block) == 0 && a.step == b.step;
}

std::string returnedText(const std::optional<int>& returned) {
  return returned ? std::to_string(*returned) : "an exception";
}

}  // namespace

std::string titleOf(const Call& call) {
  std::string title = "call " + std::to_string(call.index) + " (" + nameOf(call.kind);
  if (call.kind == CallKind::kInputStream) title += ", stream type " + std::to_string(call.type);
  if (call.kind == CallKind::kHandleEvent) title += ", event " + std::to_string(call.type);
  return title + ")";
}

std::string Difference::text(const std::string& expectedName, const std::string& foundName) const {
  return field + ": " + expectedName + " " + expected + ", " + foundName + " " + found +
         (remark.empty() ? "" : "; " + remark);
}

std::optional<Difference> findDifferenceInOutcome(const Entry& expected, const Entry& found) {
  if (expected.call.returned != found.call.returned)
    return Difference{"returned value", returnedText(expected.call.returned),
                      returnedText(found.call.returned), ""};

  if (auto difference = inNumbers("messages", expected.logs.size(), found.logs.size())) {
    const auto& more = expected.logs.size() > found.logs.size() ? expected.logs : found.logs;
    const auto& first = more[std::min(expected.logs.size(), found.logs.size())].text;
    difference->remark = "the first that only one has: " + quoted(first);
    return difference;
  }
  for (std::size_t i = 0; i < expected.logs.size(); ++i) {
    const auto &a = expected.logs[i], &b = found.logs[i];
    if (same(a, b)) continue;
    const std::string what = "message " + std::to_string(i);
    if (auto difference = inTexts(what + ", text", a.text, b.text)) return difference;
    if (auto difference = inNumbers(what + ", level", a.level, b.level)) return difference;
    if (auto difference = inNumbers(what + ", place", a.step, b.step)) return difference;
  }

  if (auto difference = inNumbers("blocks", expected.blocks.size(), found.blocks.size()))
    return difference;
  static const auto blocks = blockFields();
  for (std::size_t i = 0; i < expected.blocks.size(); ++i) {
    const auto &a = expected.blocks[i], &b = found.blocks[i];
    if (same(a, b)) continue;
    const std::string what = "block " + std::to_string(i) + ", ";
    if (auto difference = inFields(what, blocks, reinterpret_cast<const std::uint8_t*>(&a.block),
                                   reinterpret_cast<const std::uint8_t*>(&b.block)))
      return difference;
    if (auto difference = inNumbers(what + "place", a.step, b.step)) return difference;
  }

  const auto &a = expected.call.output, &b = found.call.output;
  if (a.size() != b.size()) return inBytes("answer", a, b);
  if (a == b) return std::nullopt;
  static const auto pose = poseFields(), heading = headingFields();
  return inFields("answer, ", a.size() == sizeof(algorithm::PoseAnswer) ? pose : heading, a.data(),
                  b.data());
}

std::optional<Difference> findDifferenceInArguments(const Call& expected, const Call& found) {
  if (auto difference = inTexts("operation", nameOf(expected.kind), nameOf(found.kind)))
    return difference;
  const char* const type = expected.kind == CallKind::kInit ? "product type" : "type";
  if (auto difference = inNumbers(type, expected.type, found.type)) return difference;
  if (auto difference = inNumbers("mode", expected.mode, found.mode)) return difference;
  if (auto difference = inNumbers("length", expected.length, found.length)) return difference;
  if (auto difference =
          inNumbers("pointer given", int{expected.pointerGiven}, int{found.pointerGiven}))
    return difference;
  if (auto difference =
          inNumbers("output given", int{expected.outputGiven}, int{found.outputGiven}))
    return difference;
  return inBytes("payload", expected.payload, found.payload);
}

std::optional<std::string> differenceInOutcome(const Entry& expected, const Entry& found,
                                               const std::string& expectedName,
                                               const std::string& foundName) {
  const auto difference = findDifferenceInOutcome(expected, found);
  if (!difference) return std::nullopt;
  return difference->text(expectedName, foundName);
}

std::optional<std::string> differenceInArguments(const Call& expected, const Call& found,
                                                 const std::string& expectedName,
                                                 const std::string& foundName) {
  const auto difference = findDifferenceInArguments(expected, found);
  if (!difference) return std::nullopt;
  return difference->text(expectedName, foundName);
}

}  // namespace session
