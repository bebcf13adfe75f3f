// What a camera pair can see, and how well: planning before a rig is built, judging after.
#pragma once

#include <alg_kit/rig/StereoRig.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace calibration {

struct RigMapOptions {
  double noise = 0.05;         ///< px, standard deviation of a blob's x and of its y
  double markerDiameter = 30;  ///< mm
  int productType = 2;         ///< decides the largest depth
};

/// Why a place is lost.
enum class PlaceLoss {
  kNone,
  kLeft,     ///< the left camera does not see it
  kRight,    ///< the right camera does not see it
  kRefused,  ///< more often than not its blobs fail the epipolar test: they are too small for it
  kTooNear,  ///< at or below the library's smallest depth
  kTooDeep,  ///< beyond the product type's largest depth
};

/// One place. Standard deviations are of one triangulated point, before any smoothing.
struct MapPlace {
  Eigen::Vector3d p_R = Eigen::Vector3d::Zero();  ///< right camera's frame, mm
  PlaceLoss loss = PlaceLoss::kNone;
  Eigen::Vector3d deviation = Eigen::Vector3d::Zero();  ///< of x, y and z, mm
  double distanceDeviation = 0;  ///< of the distance from the right camera, mm
  double bias = 0;               ///< mm, of the point without noise: what undistortion leaves
  double accepted = 0;           ///< probability that the epipolar test lets its blobs pass
};

/// All places of one depth: columns of x by rows of y, spaced evenly.
struct MapSlice {
  double depth = 0;          ///< mm
  double left = 0, top = 0;  ///< mm, x and y of the first place
  double step = 0;           ///< mm between places
  int columns = 0, rows = 0;
  std::vector<MapPlace> places;  ///< row by row
};

/// One line of the table.
struct MapDistance {
  double depth = 0;                                     ///< mm
  double width = 0;                                     ///< mm, largest extent of what is seen
  double height = 0;                                    ///< mm
  Eigen::Vector3d deviation = Eigen::Vector3d::Zero();  ///< median over the slice, mm
  double distanceDeviation = 0;                         ///< median, mm
  double worstZ = 0;  ///< mm, 95 % of the slice have a smaller deviation of z
};

struct RigMap {
  rig::StereoRig rig;
  RigMapOptions options;
  double maxDepth = 0;  ///< mm
  double volume = 0;    ///< m^3 in which a marker is seen and its blobs are paired
  std::vector<MapSlice> slices;
  std::vector<MapDistance> table;
};

/// Propagates the noise through the library's own undistortion and triangulation, linearised at
/// every place: C = s^2 J J^T with J = dP / d (left u, v, right u, v).
/// @throws std::invalid_argument for an unknown product type and for numbers outside their range
RigMap mapOf(const rig::StereoRig& rig, const RigMapOptions& options);

/// One place, wherever it is.
MapPlace placeAt(const rig::StereoRig& rig, const RigMapOptions& options,
                 const Eigen::Vector3d& p_R);

/// The diameter in whole pixels that the library gives a round blob.
int blobDiameter(double imagedDiameter);

/// "left-unseen", ... for programs; empty for a place that is not lost.
const char* nameOf(PlaceLoss loss);

struct NamedMap {
  std::string name;
  RigMap map;
};

/// One row per place that is not lost; with several maps they follow each other, by name.
void writeCsv(std::ostream& stream, const std::vector<NamedMap>& maps);

/// What the page shows, numbers rounded for drawing.
nlohmann::ordered_json pageData(const std::vector<NamedMap>& maps);

/// Figures in full: what --json prints.
nlohmann::ordered_json figuresOf(const std::vector<NamedMap>& maps);

}  // namespace calibration
