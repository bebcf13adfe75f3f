#pragma once

#include <alg_kit/analysis/ReportCurves.h>
#include <alg_kit/analysis/ReportNumbers.h>

#include <ostream>

namespace report {

/// Whether the page could be made when the program was built.
bool hasPage();

/// Writes the page: one HTML file that needs nothing else.
/// @throws std::logic_error without a page
void writePage(std::ostream& stream, const analysis::ReportNumbers& numbers,
               const analysis::ReportCurves& curves);

}  // namespace report
