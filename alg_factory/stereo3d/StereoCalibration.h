// Public: installed for hosts.
#pragma once

#include <cstddef>

namespace algorithm {

/// The stereo pair's calibration, handed to `AlgBase::Init` as 115 little-endian doubles. All 3x3
/// matrices are stored row by row. The unit of `translation` is the unit of every position that the
/// library delivers; its thresholds suit millimetres.
struct StereoCalibration {
  double lead = 0;                 ///< carried, not used
  double leftIntrinsics[9] = {};   ///< K_L = [fx, s, cx; 0, fy, cy; 0, 0, 1], pixels
  double leftDistortion[8] = {};   ///< k1 to k4 of the equidistant fisheye model, four not used
  double rightIntrinsics[9] = {};  ///< K_R
  double rightDistortion[8] = {};  ///< as `leftDistortion`
  double rotation[9] = {};         ///< R: a direction in the left frame to the right frame
  double translation[3] = {};      ///< T: the left camera's centre in the right camera's frame
  double fundamental[9] = {};      ///< F: left point p gives the line F p in the right image
  double tail[59] = {};            ///< carried, not used
};

static_assert(sizeof(StereoCalibration) == 920, "the size crosses the interface");
static_assert(offsetof(StereoCalibration, leftIntrinsics) == 1 * 8, "layout");
static_assert(offsetof(StereoCalibration, leftDistortion) == 10 * 8, "layout");
static_assert(offsetof(StereoCalibration, rightIntrinsics) == 18 * 8, "layout");
static_assert(offsetof(StereoCalibration, rightDistortion) == 27 * 8, "layout");
static_assert(offsetof(StereoCalibration, rotation) == 35 * 8, "layout");
static_assert(offsetof(StereoCalibration, translation) == 44 * 8, "layout");
static_assert(offsetof(StereoCalibration, fundamental) == 47 * 8, "layout");
static_assert(offsetof(StereoCalibration, tail) == 56 * 8, "layout");

}  // namespace algorithm
