#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include <alg_kit/session/Session.h>

namespace recording {

/// The checksum of a row's content: CRC-32 as zlib and Ethernet have it, over the row's values,
/// each as one byte for its type and eight bytes, little-endian: 0 nothing (no eight bytes), 1 an
/// integer, 2 a real number (its bits), 3 a text, 4 bytes (both their length, then themselves).
class Checksum {
 public:
  void add(std::int64_t value);
  void add(double value);
  void add(const std::optional<std::int64_t>& value);
  void addText(std::string_view text);
  void addBytes(const void* bytes, std::size_t size);
  void addNothing();

  std::uint32_t value() const;

  /// Of bytes by themselves, as zlib's crc32.
  static std::uint32_t ofRaw(std::string_view bytes);

 private:
  void feed(const void* bytes, std::size_t size);
  void feed(std::uint8_t type, std::uint64_t value);
  void flush();

  std::uint32_t state_ = 0xFFFFFFFF;
  std::array<std::uint8_t, 1024> gathered_;  ///< long runs of bytes go faster than single values
  std::size_t used_ = 0;
};

/// Of a call with its messages and blocks, of a truth row, and of a fact.
std::uint32_t checksumOf(const session::Entry& entry);
std::uint32_t checksumOf(const session::TruthRow& row);
std::uint32_t checksumOf(std::string_view key, std::string_view value);

}  // namespace recording
