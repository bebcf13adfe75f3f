// The library's records as C's.
#pragma once

#include <alg_factory/service/HeadingAnswer.h>
#include <alg_factory/service/InertialRecord.h>
#include <alg_factory/service/PoseAnswer.h>
#include <alg_factory/service/ResultBlock.h>
#include <alg_factory/stereo3d/StereoCalibration.h>
#include <bindings/c/alg_factory_c.h>

namespace c_interface {

alg_block blockFrom(const algorithm::ResultBlock& block);
alg_pose poseFrom(const algorithm::PoseAnswer& answer);
alg_heading headingFrom(const algorithm::HeadingAnswer& answer);

/// @param bytes  920, of any alignment
algorithm::StereoCalibration calibrationFrom(const void* bytes);

static_assert(sizeof(alg_calibration) == sizeof(algorithm::StereoCalibration));
static_assert(offsetof(alg_calibration, left_distortion) ==
              offsetof(algorithm::StereoCalibration, leftDistortion));
static_assert(offsetof(alg_calibration, right_intrinsics) ==
              offsetof(algorithm::StereoCalibration, rightIntrinsics));
static_assert(offsetof(alg_calibration, rotation) ==
              offsetof(algorithm::StereoCalibration, rotation));
static_assert(offsetof(alg_calibration, translation) ==
              offsetof(algorithm::StereoCalibration, translation));
static_assert(offsetof(alg_calibration, tail) == offsetof(algorithm::StereoCalibration, tail));

static_assert(sizeof(alg_inertial) == sizeof(algorithm::InertialRecord));
static_assert(offsetof(alg_inertial, q) == offsetof(algorithm::InertialRecord, q));
static_assert(offsetof(alg_inertial, p) == offsetof(algorithm::InertialRecord, p));
static_assert(offsetof(alg_inertial, accelerometer) ==
              offsetof(algorithm::InertialRecord, accelerometer));
static_assert(offsetof(alg_inertial, gyroscope) == offsetof(algorithm::InertialRecord, gyroscope));

}  // namespace c_interface
