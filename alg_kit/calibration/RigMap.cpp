#include <alg_factory/service/ProductTable.h>
#include <alg_kit/calibration/RawTriangulation.h>
#include <alg_kit/calibration/RigMap.h>
#include <alg_kit/rig/FisheyeCamera.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace calibration {
namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kMinDepth = 10;  // mm; the library keeps points that are farther
constexpr double kDepths[] = {250,  500,  750,  1000, 1250, 1500, 1750, 2000,
                              2250, 2500, 2750, 3000, 3500, 4000, 4500};
constexpr int kColumns = 41;
constexpr double kWidest = 3;  // of x / z: 72 degrees off the axis

bool inRange(double value, double low, double high) {
  return value >= low && value <= high;
}

double quantile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  const auto at =
      values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

/// The tangents that the right image spans, at most kWidest: left, right, top, bottom.
struct Span {
  double left = -kWidest, right = kWidest, top = -kWidest, bottom = kWidest;
};

Span spanOf(const rig::StereoRig& rig) {
  const auto camera = rig::cameraOf(rig, rig::Camera::kRight);
  constexpr int kSteps = 300;
  Span span{0, 0, 0, 0};
  for (int i = 1; i <= kSteps; ++i) {
    const double t = kWidest * i / kSteps;
    if (camera.project({-t, 0, 1})) span.left = -t;
    if (camera.project({t, 0, 1})) span.right = t;
    if (camera.project({0, -t, 1})) span.top = -t;
    if (camera.project({0, t, 1})) span.bottom = t;
  }
  return span;
}

/// As placeAt, with what does not change from place to place.
class Mapper {
 public:
  Mapper(const rig::StereoRig& rig, const RigMapOptions& options)
      : rig_(rig),
        options_(options),
        maxDepth_(algorithm::kProducts[options.productType].maxDepth),
        left_(rig::cameraOf(rig, rig::Camera::kLeft)),
        right_(rig::cameraOf(rig, rig::Camera::kRight)),
        triangulation_(rig.calibration) {}

  MapPlace at(const Eigen::Vector3d& p_R) const {
    MapPlace place;
    place.p_R = p_R;
    const auto l = left_.imageOf(rig::rightToLeft(rig_.calibration, p_R), options_.markerDiameter);
    const auto r = right_.imageOf(p_R, options_.markerDiameter);
    if (!(p_R.z() > kMinDepth)) return lost(place, PlaceLoss::kTooNear);
    if (p_R.z() > maxDepth_) return lost(place, PlaceLoss::kTooDeep);
    if (!r) return lost(place, PlaceLoss::kRight);
    if (!l) return lost(place, PlaceLoss::kLeft);

    const algorithm::ImagePoint left{l->x, l->y}, right{r->x, r->y};
    const Eigen::Matrix<double, 3, 4> perPixel = positionPerPixel(triangulation_, left, right);
    const Eigen::Matrix3d covariance =
        options_.noise * options_.noise * perPixel * perPixel.transpose();
    place.deviation = covariance.diagonal().cwiseSqrt();
    const Eigen::Vector3d towards = p_R.normalized();
    place.distanceDeviation = std::sqrt(towards.dot(covariance * towards));
    const auto centre = triangulation_(left, right);
    place.bias = (centre.position - p_R).norm();
    place.accepted = probabilityOfPassing(
        left, right, centre, (blobDiameter(l->diameter) + blobDiameter(r->diameter)) * 0.5);
    if (!place.deviation.allFinite() || !(place.accepted >= 0.5))
      return lost(place, PlaceLoss::kRefused);
    return place;
  }

 private:
  static MapPlace lost(MapPlace place, PlaceLoss loss) {
    place.loss = loss;
    return place;
  }

  /// The two distances from the lines are one and the same error, seen in two images: their mean is
  /// the size of a normal variable.
  double probabilityOfPassing(const algorithm::ImagePoint& left, const algorithm::ImagePoint& right,
                              const RawTriangulation::Result& centre, double limit) const {
    constexpr double kStep = 1e-3;  // px
    Eigen::Matrix<double, 2, 4> slopes;
    for (int axis = 0; axis < 4; ++axis) {
      const auto at = [&](double step) {
        algorithm::ImagePoint l = left, r = right;
        (axis == 0 ? l.x : axis == 1 ? l.y : axis == 2 ? r.x : r.y) += step;
        const auto result = triangulation_(l, r);
        return Eigen::Vector2d(result.signedDistances[0], result.signedDistances[1]);
      };
      slopes.col(axis) = (at(kStep) - at(-kStep)) / (2 * kStep);
    }
    const double spread = options_.noise * (slopes.row(0).norm() + slopes.row(1).norm()) / 2;
    const double mean = centre.epipolarDistance;
    if (!(limit > 0)) return 0;
    if (!(spread > 0)) return mean < limit ? 1 : 0;
    const double scale = spread * std::sqrt(2.0);
    return (std::erf((limit - mean) / scale) + std::erf((limit + mean) / scale)) / 2;
  }

  const rig::StereoRig& rig_;
  const RigMapOptions& options_;
  double maxDepth_;
  rig::FisheyeCamera left_, right_;
  RawTriangulation triangulation_;
};

void check(const RigMapOptions& options) {
  if (algorithm::findProduct(options.productType) == nullptr)
    throw std::invalid_argument("expected the product type 0, 1 or 2");
  if (!inRange(options.noise, 0, 100))
    throw std::invalid_argument("expected a noise from 0 to 100 px");
  if (!inRange(options.markerDiameter, 0.1, 1000))
    throw std::invalid_argument("expected a marker of 0.1 to 1000 mm");
}

MapSlice sliceAt(const Mapper& mapper, const Span& span, double depth) {
  MapSlice slice;
  slice.depth = depth;
  slice.columns = kColumns;
  slice.step = depth * (span.right - span.left) / (kColumns - 1);
  slice.left = depth * span.left;
  slice.top = depth * span.top;
  slice.rows =
      slice.step > 0
          ? std::min(200, 1 + static_cast<int>(depth * (span.bottom - span.top) / slice.step))
          : 0;
  for (int row = 0; row < slice.rows; ++row)
    for (int column = 0; column < slice.columns; ++column)
      slice.places.push_back(
          mapper.at({slice.left + slice.step * column, slice.top + slice.step * row, depth}));
  return slice;
}

MapDistance distanceOf(const MapSlice& slice) {
  MapDistance line;
  line.depth = slice.depth;
  std::vector<double> deviations[3], distances;
  Eigen::Vector2d low = Eigen::Vector2d::Constant(1e300), high = -low;
  for (const MapPlace& place : slice.places) {
    if (place.loss != PlaceLoss::kNone) continue;
    for (int i = 0; i < 3; ++i) deviations[i].push_back(place.deviation[i]);
    distances.push_back(place.distanceDeviation);
    low = low.cwiseMin(place.p_R.head<2>());
    high = high.cwiseMax(place.p_R.head<2>());
  }
  if (distances.empty()) return line;
  line.width = high.x() - low.x();
  line.height = high.y() - low.y();
  for (int i = 0; i < 3; ++i) line.deviation[i] = quantile(deviations[i], 0.5);
  line.distanceDeviation = quantile(distances, 0.5);
  line.worstZ = quantile(deviations[2], 0.95);
  return line;
}

/// Area of what is seen in a slice, mm^2.
double areaOf(const MapSlice& slice) {
  const auto seen = std::count_if(slice.places.begin(), slice.places.end(),
                                  [](const MapPlace& p) { return p.loss == PlaceLoss::kNone; });
  return static_cast<double>(seen) * slice.step * slice.step;
}

/// Three significant digits.
double rounded(double value) {
  if (!std::isfinite(value) || value == 0) return 0;
  const double scale = std::pow(10, 2 - std::floor(std::log10(std::abs(value))));
  return std::round(value * scale) / scale;
}

nlohmann::ordered_json tableJson(const RigMap& map) {
  nlohmann::ordered_json table = nlohmann::ordered_json::array();
  for (const MapDistance& line : map.table)
    table.push_back({{"depth_mm", line.depth},
                     {"width_mm", line.width},
                     {"height_mm", line.height},
                     {"sd_x_mm", line.deviation.x()},
                     {"sd_y_mm", line.deviation.y()},
                     {"sd_z_mm", line.deviation.z()},
                     {"sd_distance_mm", line.distanceDeviation},
                     {"p95_sd_z_mm", line.worstZ}});
  return table;
}

double baselineOf(const rig::StereoRig& rig) {
  return Eigen::Vector3d(rig.calibration.translation).norm();
}

}  // namespace

int blobDiameter(double imagedDiameter) {
  constexpr double kWeightPerPixel = 110;
  const double weight =
      std::max(1.0, std::round(kPi / 4 * imagedDiameter * imagedDiameter * kWeightPerPixel));
  return 2 * static_cast<int>(std::sqrt(weight / kWeightPerPixel / kPi) + 0.5);
}

const char* nameOf(PlaceLoss loss) {
  switch (loss) {
    case PlaceLoss::kLeft:
      return "left-unseen";
    case PlaceLoss::kRight:
      return "right-unseen";
    case PlaceLoss::kRefused:
      return "refused";
    case PlaceLoss::kTooNear:
      return "too-near";
    case PlaceLoss::kTooDeep:
      return "too-deep";
    case PlaceLoss::kNone:
      break;
  }
  return "";
}

MapPlace placeAt(const rig::StereoRig& rig, const RigMapOptions& options,
                 const Eigen::Vector3d& p_R) {
  check(options);
  return Mapper(rig, options).at(p_R);
}

RigMap mapOf(const rig::StereoRig& rig, const RigMapOptions& options) {
  check(options);
  RigMap map;
  map.rig = rig;
  map.options = options;
  map.maxDepth = algorithm::kProducts[options.productType].maxDepth;
  const Mapper mapper(rig, options);
  const Span span = spanOf(rig);
  for (const double depth : kDepths)
    if (depth <= map.maxDepth) map.slices.push_back(sliceAt(mapper, span, depth));
  for (const MapSlice& slice : map.slices) {
    map.table.push_back(distanceOf(slice));
    // Trapezoids between slices; areas grow with the square of the depth.
    if (&slice == &map.slices.front()) continue;
    const MapSlice& before = *(&slice - 1);
    const double a = areaOf(before), b = areaOf(slice);
    map.volume += (a + std::sqrt(a * b) + b) / 3 * (slice.depth - before.depth) * 1e-9;
  }
  return map;
}

void writeCsv(std::ostream& stream, const std::vector<NamedMap>& maps) {
  stream << "rig,x_mm,y_mm,z_mm,sd_x_mm,sd_y_mm,sd_z_mm,sd_distance_mm,bias_mm,accepted\n";
  const auto precision = stream.precision(6);
  for (const NamedMap& named : maps) {
    // A name is a file's: quoted, as it may hold commas.
    std::string name = "\"";
    for (const char c : named.name) name += c == '"' ? std::string("\"\"") : std::string(1, c);
    name += "\"";
    for (const MapSlice& slice : named.map.slices)
      for (const MapPlace& p : slice.places)
        if (p.loss == PlaceLoss::kNone)
          stream << name << ',' << p.p_R.x() << ',' << p.p_R.y() << ',' << p.p_R.z() << ','
                 << p.deviation.x() << ',' << p.deviation.y() << ',' << p.deviation.z() << ','
                 << p.distanceDeviation << ',' << p.bias << ',' << p.accepted << '\n';
  }
  stream.precision(precision);
}

nlohmann::ordered_json figuresOf(const std::vector<NamedMap>& maps) {
  nlohmann::ordered_json json = nlohmann::ordered_json::array();
  for (const NamedMap& named : maps)
    json.push_back({{"rig", named.name},
                    {"baseline_mm", baselineOf(named.map.rig)},
                    {"noise_px", named.map.options.noise},
                    {"marker_mm", named.map.options.markerDiameter},
                    {"product_type", named.map.options.productType},
                    {"max_depth_mm", named.map.maxDepth},
                    {"volume_m3", named.map.volume},
                    {"table", tableJson(named.map)}});
  return json;
}

nlohmann::ordered_json pageData(const std::vector<NamedMap>& maps) {
  nlohmann::ordered_json json = figuresOf(maps);
  for (std::size_t i = 0; i < maps.size(); ++i) {
    nlohmann::ordered_json slices = nlohmann::ordered_json::array();
    for (const MapSlice& slice : maps[i].map.slices) {
      // Places that are lost are null; the others x, y, z, distance (mm), accepted (per cent).
      nlohmann::ordered_json places = nlohmann::ordered_json::array();
      for (const MapPlace& p : slice.places) {
        if (p.loss != PlaceLoss::kNone) {
          places.push_back(nullptr);
          continue;
        }
        places.push_back({rounded(p.deviation.x()), rounded(p.deviation.y()),
                          rounded(p.deviation.z()), rounded(p.distanceDeviation),
                          std::round(100 * p.accepted)});
      }
      slices.push_back({{"depth", slice.depth},
                        {"left", rounded(slice.left)},
                        {"top", rounded(slice.top)},
                        {"step", slice.step},
                        {"columns", slice.columns},
                        {"rows", slice.rows},
                        {"places", places}});
    }
    json[i]["slices"] = slices;
  }
  return json;
}

}  // namespace calibration
