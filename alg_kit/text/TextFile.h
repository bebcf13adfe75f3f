#pragma once

#include <cstddef>
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

constexpr std::size_t kMostTextBytes = std::size_t{1} << 28;

/// Reads a whole regular file of at most kMostTextBytes: a device has no end, and a pipe may have
/// no other side.
/// @param kind  what the file should be, for the message: "a trajectory"
/// @throws FileError for a missing, unreadable, empty or too large file and for a directory or
/// device.
std::string readTextFile(const std::string& path, const std::string& kind);

/// A piece of a file made fit for a one-line message: quoted, shortened, control characters as '?'.
std::string quoted(std::string_view text);

}  // namespace text
