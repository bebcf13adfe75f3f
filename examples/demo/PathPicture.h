#pragma once

#include <examples/demo/TrackingHost.h>

#include <iosfwd>
#include <vector>

namespace demo {

/// Draws true and tracked paths as SVG: per run the three views from the top, the front and the
/// side at one scale, and below them each object's distance to the truth over time.
void writePathPicture(std::ostream& out, const std::vector<Run>& runs);

}  // namespace demo
