// What a scene needs of the cameras. All positions are as the library delivers them: the right
// camera's frame with y and z negated (x right, y up, z towards the viewer), in the unit of the
// calibration's translation.
#pragma once

#include <alg_factory/stereo3d/StereoCalibration.h>

#include <Eigen/Core>
#include <array>
#include <vector>

namespace view {

struct SceneCamera {
  Eigen::Vector3d centre;
  std::array<Eigen::Vector3d, 3> axes;  ///< right, down, forward; unit length
  std::vector<Eigen::Vector3d> border;  ///< unit directions of the image's border, in order
};

struct SceneGeometry {
  int width = 0, height = 0;  ///< pixels of an image, as far as the calibration lets guess it
  std::array<SceneCamera, 2> cameras;  ///< left, right
};

SceneGeometry geometryOf(const algorithm::StereoCalibration& calibration);

/// What one camera's pixel means to the other one.
struct PixelRay {
  std::array<Eigen::Vector3d, 2> ends;      ///< from the camera to the depth limit
  std::vector<Eigen::Vector2d> otherImage;  ///< the same as the other camera sees it, pixels
};

/// @param depth  along the right camera's axis, at most
PixelRay rayOf(const algorithm::StereoCalibration& calibration, int camera, double x, double y,
               double depth);

}  // namespace view
