#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace testing_support {

/// Takes values off a byte string, little-endian as all platforms here are; zeros once it is used
/// up.
class ByteReader {
 public:
  ByteReader(const std::uint8_t* data, std::size_t size) : next_(data), left_(size) {}

  bool empty() const { return left_ == 0; }

  template <typename T>
  T take() {
    T value{};
    takeInto(&value, sizeof value);
    return value;
  }

  /// 0 .. count - 1
  int below(int count) { return take<std::uint8_t>() % count; }

  std::vector<std::uint8_t> bytes(std::size_t count) {
    std::vector<std::uint8_t> result(count);
    takeInto(result.data(), count);
    return result;
  }

 private:
  void takeInto(void* to, std::size_t size) {
    const std::size_t given = std::min(size, left_);
    if (given == 0) return;
    std::memcpy(to, next_, given);
    next_ += given;
    left_ -= given;
  }

  const std::uint8_t* next_;
  std::size_t left_;
};

}  // namespace testing_support
