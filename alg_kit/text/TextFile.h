#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace text {

/// A file that cannot be used. `what()` is one line: the file, the line where known, what was
/// expected and what was found.
class FileError : public std::runtime_error {
 public:
  /// @param line  counted from 1; 0 = not known
  FileError(const std::string& path, int line, const std::string& problem);
};

/// Reads a whole file.
/// @param kind  what the file should be, for the message: "a trajectory"
/// @throws FileError for a missing, unreadable or empty file and for a directory.
std::string readTextFile(const std::string& path, const std::string& kind);

/// A piece of a file made fit for a one-line message: quoted, shortened, control characters as '?'.
std::string quoted(std::string_view text);

}  // namespace text
