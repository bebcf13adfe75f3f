#pragma once

#include <alg_kit/session/Session.h>

#include <optional>
#include <string>

namespace session {

/// Compares what came of a call, byte by byte: returned value, messages, blocks, answer. The first
/// difference in words, with both values: "block 0, record 2, y: recorded 1.5, replayed 1.25".
/// @param expected, found  the two sides
/// @param expectedName, foundName  how they are called
std::optional<std::string> differenceInOutcome(const Entry& expected, const Entry& found,
                                               const std::string& expectedName,
                                               const std::string& foundName);

/// As above, for what the host passed: kind of call, numbers, payload.
std::optional<std::string> differenceInArguments(const Call& expected, const Call& found,
                                                 const std::string& expectedName,
                                                 const std::string& foundName);

/// "call 12 (InputStream, stream type 2)"
std::string titleOf(const Call& call);

}  // namespace session
