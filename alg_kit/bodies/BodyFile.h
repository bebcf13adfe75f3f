// Bodies as files; docs/bodies.md describes them.
#pragma once

#include <alg_kit/bodies/Body.h>

namespace bodies {

/// The body as JSON, with every bit of every number.
std::string bodyText(const Body& body);

constexpr std::size_t kLongestName = 1000;  ///< bytes

/// @param where  for the message
/// @throws text::FileError in one line, if it is longer than that
void requireName(const std::string& name, const std::string& where);

/// Whether two markers, both of the two-point object's id, are a body.
enum class Pairs { kRefused, kTaken };

/// @param path  for the message
/// @throws text::FileError in one line
Body bodyFromText(const std::string& content, const std::string& path,
                  Pairs pairs = Pairs::kRefused);

/// @throws text::FileError in one line
Body readBody(const std::string& path, Pairs pairs = Pairs::kRefused);

/// Bodies that are tracked at once have no id in common.
/// @param names  of them, for the message
/// @throws text::FileError in one line
void requireOwnIds(const std::vector<Body>& bodies, const std::vector<std::string>& names);

/// Several that are tracked at once, in the order of their paths.
/// @throws text::FileError in one line, also if two of them have an id in common
std::vector<Body> readBodies(const std::vector<std::string>& paths, Pairs pairs = Pairs::kRefused);

}  // namespace bodies
