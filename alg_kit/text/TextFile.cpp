#include <alg_kit/text/TextFile.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace text {

namespace {

/// Parsers quote the file's own characters, which may be anything.
std::string onOneLine(std::string text) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7F') c = '?';
  }
  return text;
}

}  // namespace

FileError::FileError(const std::string& path, int line, const std::string& problem)
    : std::runtime_error(path + (line > 0 ? ":" + std::to_string(line) : "") + ": " +
                         onOneLine(problem)) {}

std::string readTextFile(const std::string& path, const std::string& kind) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (error && status.type() == std::filesystem::file_type::none)
    throw FileError(path, 0, "expected " + kind + ", found none to read: " + error.message());
  if (!std::filesystem::exists(status))
    throw FileError(path, 0, "expected " + kind + ", found no such file");
  if (std::filesystem::is_directory(status))
    throw FileError(path, 0, "expected " + kind + ", found a directory");
  if (!std::filesystem::is_regular_file(status))
    throw FileError(path, 0, "expected " + kind + ", found a device or a pipe");
  if (std::filesystem::file_size(path, error) > kMostTextBytes && !error)
    throw FileError(path, 0,
                    "expected " + kind + " of at most " + std::to_string(kMostTextBytes >> 20) +
                        " MiB, found a larger file");
  std::ifstream stream(path, std::ios::binary);
  if (!stream)
    throw FileError(path, 0,
                    "expected " + kind + ", found a file that cannot be opened: " +
                        std::generic_category().message(errno));
  std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  if (stream.bad()) throw FileError(path, 0, "expected " + kind + ", reading failed");
  if (text.empty()) throw FileError(path, 0, "expected " + kind + ", found an empty file");
  return text;
}

std::string quoted(std::string_view text) {
  constexpr std::size_t kLongest = 40;
  std::string result = "'";
  for (const char c : text.substr(0, kLongest)) result += c >= ' ' && c <= '~' ? c : '?';
  return result + (text.size() > kLongest ? "...'" : "'");
}

}  // namespace text
