#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

namespace text {

/// JSON as text, in ASCII: texts in a recording may be any bytes. Other characters are written as
/// codes, so that none reaches a terminal; what is no UTF-8 becomes U+FFFD. A number that is not
/// finite is null.
/// @param indent  -1 = in one line
inline std::string ofJson(const nlohmann::ordered_json& json, int indent = -1) {
  return json.dump(indent, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}

/// The same within a script element, which only '<' could end.
inline std::string ofJsonInPage(const nlohmann::ordered_json& json) {
  const std::string text = ofJson(json);
  std::string safe;
  std::size_t from = 0;
  for (std::size_t at = 0; (at = text.find('<', from)) != std::string::npos; from = at + 1)
    safe.append(text, from, at - from).append("\\u003c");
  return safe.append(text, from);
}

}  // namespace text
