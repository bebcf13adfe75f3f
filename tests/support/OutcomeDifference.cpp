#include <tests/support/OutcomeDifference.h>

#include <alg_factory/api/AlgFactory.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iomanip>

namespace testing_support {

namespace {

// Maps floats to integers in the same order, so that neighbours differ by one.
std::int64_t rankOf(float value) {
  std::uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  const std::int64_t magnitude = bits & 0x7fffffffu;
  return (bits & 0x80000000u) != 0 ? -1 - magnitude : magnitude;
}

class Comparer {
 public:
  void outcome(const session::Entry& expected, const session::Entry& found) {
    call_ = expected.call.index;
    same("result", expected.call.returned, found.call.returned);
    answer(expected.call.type, expected.call.output, found.call.output);
    if (same("number of messages", expected.logs.size(), found.logs.size()))
      for (std::size_t i = 0; i < found.logs.size(); ++i) {
        same("text of a message", expected.logs[i].text, found.logs[i].text);
        same("level of a message", expected.logs[i].level, found.logs[i].level);
        same("place of a message", expected.logs[i].step, found.logs[i].step);
      }
    if (same("number of blocks", expected.blocks.size(), found.blocks.size()))
      for (std::size_t i = 0; i < found.blocks.size(); ++i)
        block(expected.blocks[i].block, found.blocks[i].block);
  }

  template <typename T>
  bool same(const char* what, const T& expected, const T& found) {
    if (expected == found) return true;
    difference.mismatches.push_back("call " + std::to_string(call_) + ": " + what);
    return false;
  }

  void field(const std::string& name, float expected, float found) {
    FieldDifference& row = rowOf(name);
    ++row.values;
    if (std::memcmp(&expected, &found, sizeof found) == 0) return;
    ++row.unequal;
    row.ulp = std::max(row.ulp, unitsInTheLastPlace(expected, found));
    const double gap = std::abs(static_cast<double>(expected) - static_cast<double>(found));
    // NaN against a number: no bound holds. Written so that NaN does not pass for the smaller one.
    const double size = std::max(1.0, std::abs(static_cast<double>(expected)));
    const double ratio = std::isnan(gap) ? HUGE_VAL : gap / size;
    row.absolute = std::max(row.absolute, std::isnan(gap) ? HUGE_VAL : gap);
    row.relative = std::max(row.relative, ratio);
  }

  template <std::size_t N>
  void fields(const std::string& name, const float (&expected)[N], const float (&found)[N]) {
    for (std::size_t i = 0; i < N; ++i) field(name, expected[i], found[i]);
  }

  void block(const algorithm::ResultBlock& expected, const algorithm::ResultBlock& found) {
    same("block header", expected.header, found.header);
    for (int k = 0; k < algorithm::ResultBlock::kRecords; ++k) {
      const algorithm::TrackedPoint &e = expected.records[k], &f = found.records[k];
      same("id of a record", e.id, f.id);
      field("block: x", e.x, f.x);
      field("block: y", e.y, f.y);
      field("block: z", e.z, f.z);
      fields("block: hostPosition", e.hostPosition, f.hostPosition);
      fields("block: hostOrientation", e.hostOrientation, f.hostOrientation);
      field("block: reserved", e.reserved, f.reserved);
      field("block: bearing", e.bearing, f.bearing);
    }
  }

  void answer(int event, const std::vector<std::uint8_t>& expected,
              const std::vector<std::uint8_t>& found) {
    if (!same("size of an answer", expected.size(), found.size()) || expected.empty()) return;
    if (event == 16) {
      const auto e = read<algorithm::HeadingAnswer>(expected);
      const auto f = read<algorithm::HeadingAnswer>(found);
      fields("heading: orientation", e.orientation, f.orientation);
      field("heading: yaw", e.yaw, f.yaw);
      field("heading: negatedCorrectedYaw", e.negatedCorrectedYaw, f.negatedCorrectedYaw);
      same("status of a heading answer", e.status, f.status);
      same("value of a heading answer", e.value, f.value);
      field("heading: score", e.score, f.score);
      same("unwritten bytes of a heading answer", e.notWritten1, f.notWritten1);
      same("unwritten bytes of a heading answer", e.notWritten2, f.notWritten2);
    } else {
      const auto e = read<algorithm::PoseAnswer>(expected);
      const auto f = read<algorithm::PoseAnswer>(found);
      same("id of a pose answer", e.id, f.id);
      fields("pose: raw", e.raw, f.raw);
      fields("pose: rate", e.rate, f.rate);
      fields("pose: filtered", e.filtered, f.filtered);
      fields("pose: rateCopy", e.rateCopy, f.rateCopy);
    }
  }

  OutcomeDifference difference;

 private:
  template <typename Record>
  Record read(const std::vector<std::uint8_t>& bytes) {
    Record record;
    std::memcpy(static_cast<void*>(&record), bytes.data(), sizeof record);
    return record;
  }

  FieldDifference& rowOf(const std::string& name) {
    for (FieldDifference& row : difference.fields) {
      if (row.name == name) return row;
    }
    difference.fields.emplace_back();
    difference.fields.back().name = name;
    return difference.fields.back();
  }

  std::int64_t call_ = 0;
};

}  // namespace

std::uint32_t unitsInTheLastPlace(float a, float b) {
  return static_cast<std::uint32_t>(std::abs(rankOf(a) - rankOf(b)));
}

bool OutcomeDifference::none() const {
  return mismatches.empty() && std::all_of(fields.begin(), fields.end(),
                                           [](const auto& field) { return field.unequal == 0; });
}

double OutcomeDifference::relative() const {
  double largest = 0;
  for (const FieldDifference& field : fields) largest = std::max(largest, field.relative);
  return largest;
}

OutcomeDifference compare(const std::vector<session::Unit>& expected,
                          const std::vector<session::Unit>& found) {
  Comparer comparer;
  if (!comparer.same("number of units", expected.size(), found.size())) return comparer.difference;
  for (std::size_t i = 0; i < found.size(); ++i) {
    if (!comparer.same("number of calls", expected[i].size(), found[i].size())) continue;
    for (std::size_t k = 0; k < found[i].size(); ++k) comparer.outcome(expected[i][k], found[i][k]);
  }
  return comparer.difference;
}

std::ostream& operator<<(std::ostream& out, const OutcomeDifference& difference) {
  out << std::left << std::setw(30) << "field" << std::right << std::setw(8) << "values"
      << std::setw(9) << "unequal" << std::setw(12) << "ULP" << std::setw(14) << "absolute"
      << std::setw(14) << "relative" << '\n';
  for (const FieldDifference& field : difference.fields) {
    out << std::left << std::setw(30) << field.name << std::right << std::setw(8) << field.values
        << std::setw(9) << field.unequal << std::setw(12) << field.ulp << std::setw(14)
        << field.absolute << std::setw(14) << field.relative << '\n';
  }
  for (const std::string& mismatch : difference.mismatches)
    out << "not equal: " << mismatch << '\n';
  return out;
}

}  // namespace testing_support
