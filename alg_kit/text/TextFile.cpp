#include <alg_kit/text/TextFile.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace text {

namespace {

/// Parsers quote the file's own characters, which may be anything, and as many as they like.
std::string onOneLine(std::string text) {
  constexpr std::size_t kLongest = 1000;
  if (text.size() > kLongest) text = text.substr(0, kLongest) + "...";
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7F') c = '?';
  }
  return text;
}

}  // namespace

FileError::FileError(const std::string& path, int line, const std::string& problem)
    : std::runtime_error(path + (line > 0 ? ":" + std::to_string(line) : "") + ": " +
                         onOneLine(problem)) {}

std::string readTextFile(const std::string& path, const std::string& kind, std::size_t largest) {
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
  std::ifstream stream(path, std::ios::binary);
  if (!stream)
    throw FileError(path, 0,
                    "expected " + kind + ", found a file that cannot be opened: " +
                        std::generic_category().message(errno));
  // What people mix up most: its size would be a poor reason.
  constexpr std::string_view kDatabase = "SQLite format 3";
  std::string begin(kDatabase.size(), '\0');
  if (stream.read(begin.data(), static_cast<std::streamsize>(begin.size())) && begin == kDatabase)
    throw FileError(path, 0, "expected " + kind + ", found a recording, or another database");
  stream.clear();
  stream.seekg(0);
  const auto size = std::filesystem::file_size(path, error);
  if (!error && size > largest)
    throw FileError(path, 0,
                    "expected " + kind + " of at most " + std::to_string(largest) +
                        " bytes, found " + std::to_string(size));
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

std::size_t nestingOf(std::string_view text) {
  std::size_t depth = 0, deepest = 0;
  char quote = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quote != 0) {
      if (c == '\\' && quote == '"') ++i;
      if (c == quote) quote = 0;
    } else if (c == '"') {
      quote = c;
    } else if (c == '[' || c == '{') {
      deepest = std::max(deepest, ++depth);
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return deepest;
}

namespace {

/// The length of the UTF-8 character at the start; 0 if there is none that is well-formed.
std::size_t utf8Length(std::string_view text) {
  const auto byte = [&](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
  };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4) return 0;
  for (std::size_t i = 1; i < length; ++i)
    if ((byte(i) & 0xC0) != 0x80) return 0;
  // Surrogates, overlong forms, what is beyond the last character, the C1 control characters, and
  // those that end a line or turn its direction.
  const unsigned second = byte(1);
  if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
      (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F) ||
      (first == 0xC2 && second < 0xA0))
    return 0;
  const unsigned third = byte(2);
  if (first == 0xE2 && second == 0x80 && third >= 0xA8 && third <= 0xAE) return 0;
  if (first == 0xE2 && second == 0x81 && third >= 0xA6 && third <= 0xA9) return 0;
  return length;
}

}  // namespace

std::string escaped(std::string_view text, std::size_t longest) {
  std::string result;
  while (!text.empty() && result.size() < longest) {
    const std::size_t length = utf8Length(text);
    const char c = text[0];
    const bool plain = length > 1 || (length == 1 && c >= ' ' && c != '\x7F');
    if (plain) {
      result += text.substr(0, length);
    } else if (c == '\n') {
      result += "\\n";
    } else if (c == '\t') {
      result += "\\t";
    } else {
      constexpr const char* kDigits = "0123456789abcdef";
      const auto value = static_cast<unsigned char>(c);
      result += "\\x";
      result += kDigits[value >> 4];
      result += kDigits[value & 15];
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return text.empty() ? result : result + "...";
}

}  // namespace text
