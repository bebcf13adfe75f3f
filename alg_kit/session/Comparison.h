#pragma once

#include <alg_kit/session/Session.h>

#include <optional>
#include <string>

namespace session {

/// The first place where two sides of a call differ.
struct Difference {
  std::string field;            ///< "block 0, record 2, y"
  std::string expected, found;  ///< the values
  std::string remark;           ///< what helps to understand it; empty if nothing

  /// "block 0, record 2, y: recorded 1.5, replayed 1.25"
  /// @param expectedName, foundName  how the two sides are called
  std::string text(const std::string& expectedName, const std::string& foundName) const;
};

/// Compares what came of a call, byte by byte: returned value, messages, blocks, answer.
std::optional<Difference> findDifferenceInOutcome(const Entry& expected, const Entry& found);

/// As above, for what the host passed: kind of call, numbers, payload.
std::optional<Difference> findDifferenceInArguments(const Call& expected, const Call& found);

/// The first difference of an outcome in words.
std::optional<std::string> differenceInOutcome(const Entry& expected, const Entry& found,
                                               const std::string& expectedName,
                                               const std::string& foundName);

/// The first difference of the arguments in words.
std::optional<std::string> differenceInArguments(const Call& expected, const Call& found,
                                                 const std::string& expectedName,
                                                 const std::string& foundName);

/// "call 12 (InputStream, stream type 2)"
std::string titleOf(const Call& call);

}  // namespace session
