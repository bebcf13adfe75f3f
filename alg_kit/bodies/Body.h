// Markers that belong together.
#pragma once

#include <Eigen/Core>
#include <optional>
#include <string>
#include <vector>

namespace bodies {

constexpr std::size_t kMostMarkers = 16;  ///< blob ids are below it

struct BodyMarker {
  int id = 0;                                           ///< blob id
  Eigen::Vector3d position = Eigen::Vector3d::Zero();   ///< body's frame, mm
  Eigen::Vector3d deviation = Eigen::Vector3d::Zero();  ///< standard deviations, mm; 0 = not known
  /// Unit vector along which it radiates, body's frame; zero = not known.
  Eigen::Vector3d facing = Eigen::Vector3d::Zero();
};

/// A rigid body: what blob ids are where, in a frame of its own. Millimetres.
struct Body {
  std::string name;
  std::vector<BodyMarker> markers;       ///< by id, each once
  std::optional<Eigen::Vector3d> pivot;  ///< the tip of a pointer, body's frame

  /// Null if the body has no such marker.
  const BodyMarker* markerOf(int id) const;
};

/// The mean of its markers, body's frame.
Eigen::Vector3d meanOf(const Body& body);

/// Whether points span a plane at least: the second largest extent is above `least`. Points on a
/// line do not say how far a body is turned about the line.
bool spanPlane(const std::vector<Eigen::Vector3d>& points, double least);

constexpr double kLeastExtent = 2;  ///< mm, for spanPlane

}  // namespace bodies
