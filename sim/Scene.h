#pragma once

#include <alg_factory/api/Constants.h>
#include <sim/SmoothMotion.h>
#include <sim/Trajectory.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace sim {

constexpr double kPairSpacing = 68;  ///< mm between the two markers of the two-point object

/// Number of objects (and of blob ids) of a product type: 3, 3, 6.
/// @throws std::invalid_argument for a product type that is none
int objectCount(int productType);

/// A marker's true state in one frame.
struct MarkerTruth {
  int objectId = 0;                                    ///< also the marker's blob id
  int markerIndex = 0;                                 ///< 0, or 0 and 1 for the two-point object
  Eigen::Vector3d position = Eigen::Vector3d::Zero();  ///< right camera's frame, mm
  /// Unit vector along which it radiates, right camera's frame; zero = in all directions.
  Eigen::Vector3d facing = Eigen::Vector3d::Zero();
  bool inLeft = false;   ///< the left camera reported it (filled by BlobSource)
  bool inRight = false;  ///< the right camera reported it
};

/// An object's true position: the one that the library should report, before its mirroring.
struct ObjectTruth {
  int objectId = 0;
  Eigen::Vector3d position = Eigen::Vector3d::Zero();  ///< middle of its markers, right frame, mm
};

/// The truth of one moment.
struct SceneState {
  double time = 0;                   ///< seconds
  std::vector<MarkerTruth> markers;  ///< in order of object and marker
  std::vector<ObjectTruth> objects;  ///< in order of object
};

/// An object of a scene: rigid, with its own motion (generated) or on a common body (measured).
struct SceneObject {
  int id = 0;
  std::vector<Eigen::Vector3d> markers;  ///< in the object's frame, mm; their mean is its origin
  std::vector<Eigen::Vector3d> facings;  ///< unit vectors; empty = they radiate all around
  Eigen::Vector3d mount =
      Eigen::Vector3d::Zero();  ///< where it rests; on the body with measured motion
  SmoothMotion motion;          ///< added to `mount`; unused with measured motion
};

/// Marked objects that move in front of the cameras. Everything is in the right camera's frame.
///
/// Product type 0: objects 0 to 2 with one marker each. Product type 1: the same, but object 2 has
/// two markers, 68 mm apart. Product type 2: objects 0 to 5 with one marker each.
class Scene {
 public:
  /// Objects about 1.5 m away, each with its own handheld motion.
  static Scene moving(int productType, std::uint64_t seed = 1);

  /// The same objects at rest.
  static Scene still(int productType);

  /// All objects on one body, 100 to 300 mm from its origin, which follows the trajectory (already
  /// in the right camera's frame, see Trajectory::placedInFront). The line between the two markers
  /// of the two-point object leans by 30 degrees from the body's z towards its x axis: a body that
  /// turns about the vertical does not hide one marker behind the other, and while it roughly faces
  /// the cameras the two keep their order in x.
  static Scene following(int productType, Trajectory trajectory);

  /// A scene of one's own; with a trajectory the objects are mounted on its body.
  Scene(int productType, std::vector<SceneObject> objects,
        std::optional<Trajectory> trajectory = std::nullopt);

  int productType() const { return productType_; }
  const std::vector<SceneObject>& objects() const { return objects_; }
  SceneState at(double seconds) const;
  Pose poseOf(const SceneObject& object, double seconds) const;
  double duration() const;  ///< seconds; infinite for a generated motion

 private:
  int productType_;
  std::vector<SceneObject> objects_;
  std::optional<Trajectory> trajectory_;
};

}  // namespace sim
