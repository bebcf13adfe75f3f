#pragma once

#include <alg_kit/calibration/RigMap.h>

#include <ostream>
#include <string_view>
#include <vector>

namespace calibration {

/// The page of the rig map: one HTML file, with the mark @MAP_DATA@ where the data belong.
std::string_view rigMapPage();

/// Writes the page with the maps in it.
void writePage(std::ostream& stream, const std::vector<NamedMap>& maps);

}  // namespace calibration
