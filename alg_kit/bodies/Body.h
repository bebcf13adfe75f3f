// Markers that belong together.
#pragma once

#include <Eigen/Core>
#include <optional>
#include <string>
#include <vector>

namespace bodies {

constexpr std::size_t kMostMarkers = 16;        ///< blob ids are below it
constexpr double kDegrees = 57.29577951308232;  ///< in a radian

/// Both markers of product type 1's two-point object have this blob id. In a Body the second one
/// stands under another, which that product type does not have.
constexpr int kPairId = 2, kSecondOfPair = 15;

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

  /// The blob id of a marker of it, as files have it: of both of a pair the same.
  int blobIdOf(const BodyMarker& marker) const { return isPair() ? kPairId : marker.id; }

  /// Null if the body has no such marker.
  const BodyMarker* markerOf(int id) const;

  /// The two-point object. Its origin is on the line of both markers. A pose has its position and
  /// its direction; how far it is turned about that line nobody can see.
  bool isPair() const;
};

/// From a pair's first marker to its second, unit vector, body's frame.
Eigen::Vector3d axisOf(const Body& pair);

/// The mean of its markers, body's frame.
Eigen::Vector3d meanOf(const Body& body);

/// Whether points span a plane at least: the second largest extent is above `least`. Points on a
/// line do not say how far a body is turned about the line.
bool spanPlane(const std::vector<Eigen::Vector3d>& points, double least);

constexpr double kLeastExtent = 2;  ///< mm, for spanPlane

}  // namespace bodies
