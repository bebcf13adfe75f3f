#pragma once

#include <alg_kit/analysis/Moment.h>
#include <alg_kit/session/Comparison.h>

#include <cstdint>
#include <optional>
#include <string>

namespace analysis {

/// Looks for the first difference of two runs and counts the calls that differ. A what-if differs
/// in its arguments by intent; where its answers part is another question.
class ReplayVerdict {
 public:
  /// Where two runs part.
  struct Parting {
    session::Call call;
    Moment at;  ///< the packet at or before the call, with the call's time; packet -1 = none yet
    session::Difference difference;
  };

  /// @param expectedName, foundName  how the two runs are called
  explicit ReplayVerdict(std::string expectedName = "recorded", std::string foundName = "replayed");

  /// @param expected  what should have come; null = the call is missing there
  /// @param found     what came; null likewise, but not both
  /// @param at        as Parting
  /// @param argumentsToo  else only what came of the call
  void compare(const session::Entry* expected, const session::Entry* found, const Moment& at,
               bool argumentsToo);

  std::int64_t compared() const { return compared_; }
  std::int64_t differing() const { return differing_; }

  /// The first difference of the arguments, and of what came of the calls.
  const std::optional<Parting>& inArguments() const { return inArguments_; }
  const std::optional<Parting>& inOutcomes() const { return inOutcomes_; }

  /// Both in words; empty without any.
  std::string text() const;

 private:
  std::string textOf(const Parting& parting) const;

  std::string expectedName_, foundName_;
  std::int64_t compared_ = 0, differing_ = 0;
  std::optional<Parting> inArguments_, inOutcomes_;
};

}  // namespace analysis
