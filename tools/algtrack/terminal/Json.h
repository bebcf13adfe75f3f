// The one way in which commands print JSON: docs/json.md describes it command by command.
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

namespace algtrack {

/// Keys stay in the order in which they were added.
using Json = nlohmann::ordered_json;

/// Indented by two; bytes that are no UTF-8 become U+FFFD, numbers that are not finite null.
std::string printable(const Json& json);

/// On a line of its own, for JSON Lines and pages; bytes as above.
std::string compact(const Json& json);

/// The name of a choice as programs get it: '_' where people read '-'.
std::string jsonKey(std::string name);

/// Prints `json` to standard output.
void printJson(const Json& json);

}  // namespace algtrack
