// How far the outcomes of one stream on two platforms lie apart: everything that is no
// floating-point number must be equal; of each floating-point field, the largest difference.
#pragma once

#include <alg_kit/session/Session.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace testing_support {

/// Floats that lie between two, both ends counted as one: 0 = the same bits, except that the two
/// zeros are one step apart. Two NaNs count as their bits do.
std::uint32_t unitsInTheLastPlace(float a, float b);

struct FieldDifference {
  std::string name;
  long values = 0;        ///< compared
  long unequal = 0;       ///< of them
  std::uint32_t ulp = 0;  ///< largest difference, units in the last place
  double absolute = 0;    ///< largest difference, in the field's own unit
  double relative = 0;    ///< largest difference over the larger of 1 and the value's size
};

struct OutcomeDifference {
  std::vector<FieldDifference> fields;
  /// What must be equal and is not: results, ids, stamps, counts, log lines.
  std::vector<std::string> mismatches;

  bool none() const;
  /// Largest of all fields.
  double relative() const;
};

OutcomeDifference compare(const std::vector<session::Unit>& expected,
                          const std::vector<session::Unit>& found);

/// A table, one line per field.
std::ostream& operator<<(std::ostream& out, const OutcomeDifference& difference);

}  // namespace testing_support
