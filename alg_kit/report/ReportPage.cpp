#include <alg_kit/report/ReportPage.h>

#include <alg_kit/report/BuiltInPage.h>
#include <alg_kit/report/ReportJson.h>
#include <alg_kit/text/JsonText.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace report {
namespace {

constexpr std::string_view kMark = "@REPORT_DATA@";

}  // namespace

bool hasPage() {
  return !builtInPage().empty();
}

void writePage(std::ostream& stream, const analysis::ReportNumbers& numbers,
               const analysis::ReportCurves& curves) {
  const std::string_view page = builtInPage();
  const std::size_t mark = page.find(kMark);
  if (mark == std::string_view::npos)
    throw std::logic_error("the page that was built in has no place for the data");
  stream << page.substr(0, mark)
         << text::ofJsonInPage({{"numbers", jsonOf(numbers)}, {"rows", jsonOf(curves)}})
         << page.substr(mark + kMark.size());
}

}  // namespace report
