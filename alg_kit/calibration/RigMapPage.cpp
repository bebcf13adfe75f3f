#include <alg_kit/calibration/RigMapPage.h>

#include <string>

namespace calibration {

void writePage(std::ostream& stream, const std::vector<NamedMap>& maps) {
  constexpr std::string_view kMark = "@MAP_DATA@";
  const std::string_view page = rigMapPage();
  const std::size_t at = page.find(kMark);
  // Names may hold any bytes, and "</script>" would end the block of data.
  std::string data =
      pageData(maps).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  std::string escaped;
  for (const char c : data) escaped += c == '<' ? std::string("\\u003c") : std::string(1, c);
  stream << page.substr(0, at) << escaped << page.substr(at + kMark.size());
}

}  // namespace calibration
