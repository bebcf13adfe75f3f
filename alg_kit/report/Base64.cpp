#include <alg_kit/report/Base64.h>

#include <cstdint>
#include <cstring>

namespace report {

std::string base64Of(const std::vector<float>& values) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((values.size() * 4 + 2) / 3 * 4);
  std::uint32_t group = 0;
  int bytes = 0;
  const auto write = [&](int digits) {
    for (int i = 0; i < 4; ++i) text += i < digits ? kDigits[(group >> (18 - 6 * i)) & 63] : '=';
    group = 0;
    bytes = 0;
  };
  for (const float value : values) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    for (int shift = 0; shift < 32; shift += 8) {
      group |= ((bits >> shift) & 255) << (16 - 8 * bytes);
      if (++bytes == 3) write(4);
    }
  }
  if (bytes > 0) write(bytes + 1);
  return text;
}

}  // namespace report
