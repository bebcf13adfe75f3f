#pragma once

#include <string_view>

namespace report {

/// One HTML file with the mark @REPORT_DATA@ where the data belong. Empty if the page could not be
/// made when the program was built.
std::string_view builtInPage();

}  // namespace report
