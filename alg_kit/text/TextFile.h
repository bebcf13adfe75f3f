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

constexpr std::size_t kLargestTextFile = 64 * 1024 * 1024;

/// Reads a whole file.
/// @param kind     what the file should be, for the message: "a trajectory"
/// @param largest  bytes
/// @throws FileError for a missing, unreadable, empty or larger file, for a directory and for what
/// is
///         no file (a device or a pipe has no end).
std::string readTextFile(const std::string& path, const std::string& kind,
                         std::size_t largest = kLargestTextFile);

/// How deep brackets and braces stand inside each other, those in quotes left out.
std::size_t nestingOf(std::string_view text);

/// What a file says, made fit for a terminal: control characters, those that end a line or turn its
/// direction, and bytes that are no UTF-8 as \n, \x1b and the like, everything else as it is.
/// About `longest` bytes at most.
std::string escaped(std::string_view text, std::size_t longest = 200);

/// A piece of a file made fit for a one-line message: quoted, shortened, control characters as '?'.
std::string quoted(std::string_view text);

}  // namespace text
