#pragma once

#include <string>
#include <vector>

namespace report {

/// The numbers as 32-bit floats, least byte first, in base64.
std::string base64Of(const std::vector<float>& values);

}  // namespace report
