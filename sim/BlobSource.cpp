#include <sim/BlobSource.h>
#include <sim/Pi.h>

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

constexpr double kWeightPerPixel = 110;
constexpr double kLargestWeight = 0xFFFFFF;      // 24 bits
constexpr double kLargestMoment = 4294967295.0;  // 32 bits

constexpr double kSplitShare = 0.7071067811865476;  // diameter of a disc of half the area
constexpr double kReflectionShare = 0.6;            // diameter, of the marker's own
constexpr double kStrayDiameters[2] = {2, 8};       // px

// A shiny surface below the scene and a little behind it.
const Eigen::Vector3d kReflectionOffset(25, 130, 60);  // mm

}  // namespace

BlobRecord blobRecord(int id, rig::Camera camera, const rig::FisheyeCamera::Image& image) {
  const double area = kPi / 4 * image.diameter * image.diameter;
  // A blob of more weight would not fit its fields: the hardware saturates.
  const double momentLimit = kLargestMoment / std::max({image.x, image.y, 1.0});
  const double weight = std::floor(
      std::clamp(std::round(area * kWeightPerPixel), 1.0, std::min(kLargestWeight, momentLimit)));
  const auto moment = [weight](double centre) {
    return static_cast<std::uint32_t>(std::clamp(std::round(centre * weight), 0.0, kLargestMoment));
  };
  return {id, camera, static_cast<std::uint32_t>(weight), moment(image.x), moment(image.y)};
}

BlobSource::BlobSource(const rig::StereoRig& rig, BlobOptions options)
    : calibration_(rig.calibration),
      left_(rig::cameraOf(rig, rig::Camera::kLeft)),
      right_(rig::cameraOf(rig, rig::Camera::kRight)),
      options_(std::move(options)) {}

void BlobSource::observe(SceneState& state, int idCount, Random& random,
                         std::vector<BlobRecord>& blobs) const {
  blobs.clear();
  for (MarkerTruth& marker : state.markers) {
    marker.inLeft = observeMarker(marker, rig::Camera::kLeft, state.time, random, blobs);
    marker.inRight = observeMarker(marker, rig::Camera::kRight, state.time, random, blobs);
    if (random.chance(options_.reflectionProbability)) observeReflection(marker, random, blobs);
  }
  addStrays(rig::Camera::kLeft, idCount, random, blobs);
  addStrays(rig::Camera::kRight, idCount, random, blobs);
}

bool BlobSource::observeMarker(const MarkerTruth& marker, rig::Camera camera, double time,
                               Random& random, std::vector<BlobRecord>& blobs) const {
  // All draws come first: what is switched on or hidden does not shift the draws of other markers.
  const double noiseX = options_.pixelNoise * random.normal();
  const double noiseY = options_.pixelNoise * random.normal();
  const bool dropped = random.chance(options_.dropoutProbability);
  const bool split = random.chance(options_.splitProbability);
  const double splitDirection = random.uniform(0, 2 * kPi);

  if (dropped || occluded(marker, camera, time) || !radiatesTo(marker, camera)) return false;
  auto image = imageOf(marker.position, options_.markerDiameter, camera);
  if (!image) return false;
  image->x += noiseX;
  image->y += noiseY;
  if (!lens(camera).contains(image->x, image->y)) return false;

  // The halves overlap (they are merged again) as long as their distance is below their diameter
  // in whole even pixels; blobs that are too small for that stay whole.
  const double halfDiameter = image->diameter * kSplitShare;
  const double wholeDiameter = 2 * std::trunc(halfDiameter / 2 + 0.5);
  if (!split || wholeDiameter < 2) {
    blobs.push_back(blobRecord(marker.objectId, camera, *image));
    return true;
  }
  const double dx = wholeDiameter / 4 * std::cos(splitDirection);
  const double dy = wholeDiameter / 4 * std::sin(splitDirection);
  for (const double side : {-1.0, 1.0})
    blobs.push_back(blobRecord(
        marker.objectId, camera,
        {std::max(image->x + side * dx, 0.0), std::max(image->y + side * dy, 0.0), halfDiameter}));
  return true;
}

void BlobSource::observeReflection(const MarkerTruth& marker, Random& random,
                                   std::vector<BlobRecord>& blobs) const {
  const Eigen::Vector3d position =
      marker.position + kReflectionOffset + Eigen::Vector3d(random.uniform(-10, 10), 0, 0);
  for (const rig::Camera camera : {rig::Camera::kLeft, rig::Camera::kRight})
    if (const auto image = imageOf(position, options_.markerDiameter * kReflectionShare, camera))
      blobs.push_back(blobRecord(marker.objectId, camera, *image));
}

void BlobSource::addStrays(rig::Camera camera, int idCount, Random& random,
                           std::vector<BlobRecord>& blobs) const {
  for (int i = random.poisson(options_.strayRate); i > 0; --i) {
    rig::FisheyeCamera::Image image;
    image.x = random.uniform(0, lens(camera).width());
    image.y = random.uniform(0, lens(camera).height());
    image.diameter = random.uniform(kStrayDiameters[0], kStrayDiameters[1]);
    blobs.push_back(blobRecord(random.index(idCount), camera, image));
  }
}

bool BlobSource::radiatesTo(const MarkerTruth& marker, rig::Camera camera) const {
  if (marker.facing.isZero() || options_.emissionAngle >= 180) return true;
  Eigen::Vector3d from = marker.position, to = marker.position + marker.facing;
  if (camera == rig::Camera::kLeft)
    for (Eigen::Vector3d* const p : {&from, &to}) *p = rig::rightToLeft(calibration_, *p);
  // The camera is in its frame's origin.
  const double cosine = -(to - from).dot(from.normalized());
  return cosine >= std::cos(options_.emissionAngle * kPi / 180);
}

bool BlobSource::occluded(const MarkerTruth& marker, rig::Camera camera, double time) const {
  return std::any_of(options_.occlusions.begin(), options_.occlusions.end(),
                     [&](const Occlusion& o) {
                       return o.objectId == marker.objectId && time >= o.from && time < o.to &&
                              o.markerIndex.value_or(marker.markerIndex) == marker.markerIndex &&
                              o.camera.value_or(camera) == camera;
                     });
}

std::optional<rig::FisheyeCamera::Image> BlobSource::imageOf(const Eigen::Vector3d& p_R,
                                                             double diameter,
                                                             rig::Camera camera) const {
  return camera == rig::Camera::kLeft ? left_.imageOf(rig::rightToLeft(calibration_, p_R), diameter)
                                      : right_.imageOf(p_R, diameter);
}

const rig::FisheyeCamera& BlobSource::lens(rig::Camera camera) const {
  return camera == rig::Camera::kLeft ? left_ : right_;
}

}  // namespace sim
