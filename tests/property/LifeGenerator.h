#pragma once

#include <cstdint>
#include <vector>

#include <rapidcheck.h>

namespace testing_support {

/// Bytes for `lifeFrom`: up to some hundred calls, shrinking towards few.
inline rc::Gen<std::vector<std::uint8_t>> lifeBytes() {
  constexpr std::size_t kLongest = 6000;
  return rc::gen::mapcat(
      rc::gen::resize(rc::kNominalSize, rc::gen::inRange<std::size_t>(0, kLongest)),
      [](std::size_t length) {
        return rc::gen::resize(rc::kNominalSize, rc::gen::container<std::vector<std::uint8_t>>(
                                                     length, rc::gen::arbitrary<std::uint8_t>()));
      });
}

}  // namespace testing_support
