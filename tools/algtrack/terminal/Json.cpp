#include <tools/algtrack/terminal/Json.h>

#include <algorithm>
#include <iostream>

namespace algtrack {

std::string printable(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

std::string compact(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string jsonKey(std::string name) {
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

void printJson(const Json& json) {
  std::cout << printable(json) << "\n";
}

}  // namespace algtrack
