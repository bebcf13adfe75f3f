#include <alg_kit/calibration/RigMapPage.h>

#include <alg_kit/text/JsonText.h>

#include <string>

namespace calibration {

void writePage(std::ostream& stream, const std::vector<NamedMap>& maps) {
  constexpr std::string_view kMark = "@MAP_DATA@";
  const std::string_view page = rigMapPage();
  const std::size_t at = page.find(kMark);
  stream << page.substr(0, at) << text::ofJsonInPage(pageData(maps))
         << page.substr(at + kMark.size());
}

}  // namespace calibration
