#include <alg_kit/report/Base64.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace report {

std::string base64Of(const std::vector<float>& values) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::vector<unsigned char> bytes;
  bytes.reserve(values.size() * 4 + 2);
  for (const float value : values) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    for (int shift = 0; shift < 32; shift += 8)
      bytes.push_back(static_cast<unsigned char>(bits >> shift));
  }
  const std::size_t count = bytes.size();
  bytes.resize(count + 2);  // so that the last group is whole too
  std::string text((count + 2) / 3 * 4, '=');
  for (std::size_t i = 0, at = 0; i < count; i += 3, at += 4) {
    const unsigned group = (static_cast<unsigned>(bytes[i]) << 16) |
                           (static_cast<unsigned>(bytes[i + 1]) << 8) | bytes[i + 2];
    const std::size_t digits = std::min<std::size_t>(count - i, 3) + 1;
    for (std::size_t k = 0; k < digits; ++k) text[at + k] = kDigits[(group >> (18 - 6 * k)) & 63];
  }
  return text;
}

}  // namespace report
