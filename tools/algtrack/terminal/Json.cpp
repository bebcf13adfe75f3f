#include <alg_kit/text/JsonText.h>
#include <tools/algtrack/terminal/Json.h>

#include <algorithm>
#include <iostream>

namespace algtrack {

std::string printable(const Json& json) {
  return text::ofJson(json, 2);
}

std::string compact(const Json& json) {
  return text::ofJson(json);
}

std::string jsonKey(std::string name) {
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

void printJson(const Json& json) {
  std::cout << printable(json) << "\n";
}

}  // namespace algtrack
