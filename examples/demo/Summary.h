#pragma once

#include <examples/demo/TrackingHost.h>

#include <iosfwd>
#include <vector>

namespace demo {

/// Prints the table of all runs.
void printSummary(std::ostream& out, const std::vector<Run>& runs);

}  // namespace demo
