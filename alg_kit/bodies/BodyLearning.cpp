#include <alg_kit/bodies/BodyLearning.h>

#include <alg_kit/bodies/RigidFit.h>

#include <Eigen/Cholesky>
#include <Eigen/Eigenvalues>
#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>

namespace bodies {
namespace {

using Eigen::Matrix3d;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;
using Matrix6d = Eigen::Matrix<double, 6, 6>;
using Vector6d = Eigen::Matrix<double, 6, 1>;

constexpr std::size_t kMostFrames = 6000;
constexpr std::size_t kFewestTogether = 10;  // frames that say whether two markers hold still
constexpr double kMedianOfChi2 = 0.4549;     // one degree of freedom
constexpr double kStillMost = 9;             // times the expected square: three times the noise
constexpr double kPointMost = 30;  // squared standard deviations of three numbers: 1 in a million
constexpr int kMostSteps = 30;
constexpr int kFirstStepWithGate = 2;  // before it the shape is not good enough to judge a point
constexpr double kPrecision = 1e-6;    // mm
constexpr int kGauge = 6;              // a body may be moved and turned freely

using Shape = std::map<int, Vector3d>;  // by id

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// What the frames say of one pair of markers.
struct PairView {
  std::vector<double> distances, variances;
};

std::map<std::pair<int, int>, PairView> pairViews(const std::vector<FramePoints>& frames) {
  std::map<std::pair<int, int>, PairView> views;
  for (const FramePoints& frame : frames)
    for (std::size_t i = 0; i < frame.ids.size(); ++i)
      for (std::size_t j = i + 1; j < frame.ids.size(); ++j) {
        const MarkerPoint &a = frame.points[i], &b = frame.points[j];
        const Vector3d apart = b.position - a.position;
        const Vector3d along = apart.normalized();
        PairView& view = views[{frame.ids[i], frame.ids[j]}];
        view.distances.push_back(apart.norm());
        view.variances.push_back(along.dot((a.weight.inverse() + b.weight.inverse()) * along));
      }
  return views;
}

/// The distance keeps within its noise about its median. Outliers do not decide.
bool holdsStill(const PairView& view) {
  if (view.distances.size() < kFewestTogether) return true;
  const double middle = median(view.distances);
  std::vector<double> squares;
  for (std::size_t i = 0; i < view.distances.size(); ++i)
    squares.push_back(std::pow(view.distances[i] - middle, 2) / view.variances[i]);
  return median(squares) / kMedianOfChi2 < kStillMost;
}

/// The markers that move against most others, worst first, until the rest hold still.
std::vector<int> looseOf(const std::map<std::pair<int, int>, PairView>& views) {
  std::set<std::pair<int, int>> moving;
  for (const auto& [pair, view] : views)
    if (!holdsStill(view)) moving.insert(pair);
  std::vector<int> loose;
  while (!moving.empty()) {
    std::map<int, int> counts;
    for (const auto& [a, b] : moving) ++counts[a], ++counts[b];
    const int worst =
        std::max_element(counts.begin(), counts.end(), [](const auto& a, const auto& b) {
          return a.second < b.second;
        })->first;
    loose.push_back(worst);
    for (auto it = moving.begin(); it != moving.end();)
      it = it->first == worst || it->second == worst ? moving.erase(it) : std::next(it);
  }
  std::sort(loose.begin(), loose.end());
  return loose;
}

/// A frame's motion by the markers whose place is known already.
std::optional<RigidMotion> motionOf(const FramePoints& frame, const Shape& shape) {
  std::vector<Vector3d> from, to;
  std::vector<double> weights;
  for (std::size_t i = 0; i < frame.ids.size(); ++i) {
    const auto known = shape.find(frame.ids[i]);
    if (known == shape.end()) continue;
    from.push_back(known->second);
    to.push_back(frame.points[i].position);
    weights.push_back(3 / frame.points[i].weight.inverse().trace());
  }
  if (!spanPlane(from, kLeastExtent)) return std::nullopt;
  return fitRigid(from.data(), to.data(), weights.data(), from.size());
}

Shape shapeIn(const FramePoints& frame) {
  Shape shape;
  for (std::size_t i = 0; i < frame.ids.size(); ++i) shape[frame.ids[i]] = frame.points[i].position;
  return shape;
}

std::vector<Vector3d> placesOf(const Shape& shape) {
  std::vector<Vector3d> places;
  for (const auto& [id, place] : shape) places.push_back(place);
  return places;
}

/// A first shape: the frame with most markers, and bit by bit what was seen with three of them.
Shape firstShape(const std::vector<FramePoints>& frames) {
  Shape shape;
  for (const FramePoints& frame : frames) {
    if (frame.ids.size() <= shape.size()) continue;
    Shape seen = shapeIn(frame);
    if (spanPlane(placesOf(seen), kLeastExtent)) shape = std::move(seen);
  }
  for (bool grown = !shape.empty(); grown;) {
    std::map<int, std::array<std::vector<double>, 3>> places;
    for (const FramePoints& frame : frames) {
      const auto motion = motionOf(frame, shape);
      for (std::size_t i = 0; motion && i < frame.ids.size(); ++i) {
        if (shape.count(frame.ids[i]) > 0) continue;
        const Vector3d place =
            motion->orientation.conjugate() * (frame.points[i].position - motion->position);
        for (std::size_t k = 0; k < 3; ++k)
          places[frame.ids[i]][k].push_back(place[static_cast<int>(k)]);
      }
    }
    grown = !places.empty();
    for (auto& [id, axes] : places)
      shape[id] = Vector3d(median(axes[0]), median(axes[1]), median(axes[2]));
  }
  return shape;
}

/// One Gauss-Newton step over markers and poses, the poses eliminated (Schur complement).
class Adjustment {
 public:
  Adjustment(const std::vector<FramePoints>& frames, const Shape& shape) : frames_(frames) {
    for (const auto& [id, place] : shape) {
      place_[id] = static_cast<int>(shape_.size());
      shape_.push_back(place);
      ids_.push_back(id);
    }
    for (const FramePoints& frame : frames_) motions_.push_back(motionOf(frame, shape));
  }

  void run() {
    for (int step = 0; step < kMostSteps; ++step) {
      const double change = advance(step >= kFirstStepWithGate);
      if (step > kFirstStepWithGate && change < kPrecision) break;
    }
  }

  const std::vector<int>& ids() const { return ids_; }
  const std::vector<Vector3d>& shape() const { return shape_; }
  const MatrixXd& covariance() const { return covariance_; }
  std::int64_t framesUsed() const { return framesUsed_; }
  double misfit() const { return misfit_; }  ///< over its expectation

 private:
  struct View {
    int marker = 0;
    const MarkerPoint* point = nullptr;
  };

  std::vector<View> viewsOf(std::size_t f, bool gate) const {
    std::vector<View> views;
    std::vector<Vector3d> places;
    for (std::size_t i = 0; i < frames_[f].ids.size(); ++i) {
      const auto known = place_.find(frames_[f].ids[i]);
      if (known == place_.end()) continue;
      const MarkerPoint& point = frames_[f].points[i];
      const Vector3d& place = shape_[static_cast<std::size_t>(known->second)];
      const Vector3d residual = point.position - *motions_[f] * place;
      if (gate && residual.dot(point.weight * residual) > kPointMost) continue;
      views.push_back({known->second, &point});
      places.push_back(place);
    }
    if (!spanPlane(places, kLeastExtent)) views.clear();
    return views;
  }

  /// The frame's pose for the shape as it is.
  void settle(std::size_t f, const std::vector<View>& views) {
    for (int step = 0; step < 3; ++step) {
      Matrix6d weight = Matrix6d::Zero();
      Vector6d pull = Vector6d::Zero();
      for (const View& view : views) {
        const auto [jacobian, residual] = linearised(f, view);
        weight += jacobian.transpose() * view.point->weight * jacobian;
        pull += jacobian.transpose() * view.point->weight * residual;
      }
      motions_[f] = changedBy(*motions_[f], weight.ldlt().solve(pull));
    }
  }

  std::pair<Eigen::Matrix<double, 3, 6>, Vector3d> linearised(std::size_t f,
                                                              const View& view) const {
    const Vector3d arm = motions_[f]->orientation * shape_[static_cast<std::size_t>(view.marker)];
    Eigen::Matrix<double, 3, 6> jacobian;
    jacobian << Matrix3d::Identity(), -skew(arm);
    return {jacobian, view.point->position - arm - motions_[f]->position};
  }

  double advance(bool gate) {
    const auto size = static_cast<int>(3 * shape_.size());
    MatrixXd weight = MatrixXd::Zero(size, size);
    VectorXd pull = VectorXd::Zero(size);
    double misfit = 0;
    std::int64_t numbers = 0;
    framesUsed_ = 0;
    for (std::size_t f = 0; f < frames_.size(); ++f) {
      if (!motions_[f]) continue;
      const std::vector<View> views = viewsOf(f, gate);
      if (views.empty()) continue;
      settle(f, views);
      ++framesUsed_;
      numbers += 3 * static_cast<std::int64_t>(views.size()) - kGauge;
      misfit += addFrame(f, views, weight, pull);
    }
    numbers -= size - kGauge;
    misfit_ = numbers > 0 ? misfit / static_cast<double>(numbers) : 0;
    return solve(weight, pull);
  }

  double addFrame(std::size_t f, const std::vector<View>& views, MatrixXd& weight,
                  VectorXd& pull) const {
    const Matrix3d rotation = motions_[f]->orientation.toRotationMatrix();
    Matrix6d pose = Matrix6d::Zero();
    Vector6d posePull = Vector6d::Zero();
    MatrixXd cross = MatrixXd::Zero(6, weight.cols());
    double misfit = 0;
    for (const View& view : views) {
      const auto [jacobian, residual] = linearised(f, view);
      const Matrix3d& w = view.point->weight;
      const int at = 3 * view.marker;
      pose += jacobian.transpose() * w * jacobian;
      posePull += jacobian.transpose() * w * residual;
      cross.block<6, 3>(0, at) = jacobian.transpose() * w * rotation;
      weight.block<3, 3>(at, at) += rotation.transpose() * w * rotation;
      pull.segment<3>(at) += rotation.transpose() * w * residual;
      misfit += residual.dot(w * residual);
    }
    const Eigen::LDLT<Matrix6d> solver(pose);
    weight -= cross.transpose() * solver.solve(cross);
    pull -= cross.transpose() * solver.solve(posePull);
    return misfit;
  }

  /// The six directions that move the whole body are left as they are.
  double solve(const MatrixXd& weight, const VectorXd& pull) {
    const Eigen::SelfAdjointEigenSolver<MatrixXd> solver(weight);
    VectorXd inverse = VectorXd::Zero(weight.cols());
    for (int i = kGauge; i < inverse.size(); ++i) inverse[i] = 1 / solver.eigenvalues()[i];
    covariance_ = solver.eigenvectors() * inverse.asDiagonal() * solver.eigenvectors().transpose();
    const VectorXd change = covariance_ * pull;
    for (std::size_t i = 0; i < shape_.size(); ++i)
      shape_[i] += change.segment<3>(static_cast<int>(3 * i));
    return change.cwiseAbs().maxCoeff();
  }

  const std::vector<FramePoints>& frames_;
  std::map<int, int> place_;  ///< of an id in what follows
  std::vector<int> ids_;
  std::vector<Vector3d> shape_;
  std::vector<std::optional<RigidMotion>> motions_;  ///< by frame
  MatrixXd covariance_;
  std::int64_t framesUsed_ = 0;
  double misfit_ = 0;
};

/// The body's own frame: the origin is the markers' mean, x leads to the marker of the lowest id
/// that is not there, and the next marker off that line is in the plane of x and y, at positive y.
RigidMotion ownFrame(const std::vector<Vector3d>& shape) {
  Vector3d mean = Vector3d::Zero();
  for (const Vector3d& place : shape) mean += place / static_cast<double>(shape.size());
  Vector3d x = Vector3d::UnitX(), y = Vector3d::UnitY();
  std::size_t i = 0;
  while (i < shape.size() && (shape[i] - mean).norm() < kLeastExtent) ++i;
  if (i < shape.size()) x = (shape[i] - mean).normalized();
  for (const Vector3d& place : shape) {
    const Vector3d across = place - mean - x * x.dot(place - mean);
    if (across.norm() < kLeastExtent) continue;
    y = across.normalized();
    break;
  }
  Matrix3d axes;
  axes << x, y, x.cross(y);
  RigidMotion toOwn;
  toOwn.orientation = Eigen::Quaterniond(axes).conjugate().normalized();
  toOwn.position = -(toOwn.orientation * mean);
  return toOwn;
}

}  // namespace

std::vector<FramePoints> pointsOf(const recording::RecordingReader& reader,
                                  const std::vector<int>& ids, double noise) {
  std::vector<FramePoints> frames;
  std::size_t stride = 1, read = 0;
  readFrames(reader, [&](const BodyFrame& frame, const estimate::PixelEquations& cameras) {
    if (read++ % stride != 0) return;
    FramePoints seen;
    for (const int id : ids)
      if (const auto point = pointOf(frame.markers[static_cast<std::size_t>(id)], cameras, noise)) {
        seen.ids.push_back(id);
        seen.points.push_back(*point);
      }
    if (seen.ids.size() >= 2) frames.push_back(std::move(seen));
    if (frames.size() < 2 * kMostFrames) return;
    for (std::size_t i = 0; i < kMostFrames; ++i) frames[i] = std::move(frames[2 * i]);
    frames.resize(kMostFrames);
    stride *= 2;
  });
  return frames;
}

LearnedBody learn(const std::vector<FramePoints>& all, const std::vector<int>& ids,
                  const std::string& name) {
  LearnedBody result;
  result.body.name = name;
  const auto views = pairViews(all);
  result.loose = looseOf(views);
  for (std::size_t i = 0; i < ids.size(); ++i)
    for (std::size_t j = i + 1; j < ids.size(); ++j)
      if (views.count({ids[i], ids[j]}) == 0) result.neverTogether.emplace_back(ids[i], ids[j]);

  std::vector<FramePoints> frames;
  for (const FramePoints& frame : all) {
    FramePoints& kept = frames.emplace_back();
    for (std::size_t i = 0; i < frame.ids.size(); ++i) {
      if (std::count(result.loose.begin(), result.loose.end(), frame.ids[i]) > 0) continue;
      kept.ids.push_back(frame.ids[i]);
      kept.points.push_back(frame.points[i]);
    }
  }
  const Shape first = firstShape(frames);
  for (const int id : ids)
    if (first.count(id) == 0 && std::count(result.loose.begin(), result.loose.end(), id) == 0)
      result.notLinked.push_back(id);
  if (first.size() < 3)
    throw std::runtime_error(
        "expected three markers that hold still to each other, are not in a line and were seen in "
        "one frame by both cameras, found fewer");

  Adjustment adjustment(frames, first);
  adjustment.run();
  result.frames = adjustment.framesUsed();
  result.misfit = adjustment.misfit();
  const MatrixXd covariance = adjustment.covariance() * std::max(1.0, result.misfit);
  const RigidMotion toOwn = ownFrame(adjustment.shape());
  const Matrix3d rotation = toOwn.orientation.toRotationMatrix();
  for (std::size_t i = 0; i < adjustment.ids().size(); ++i) {
    const auto at = static_cast<int>(3 * i);
    BodyMarker& marker = result.body.markers.emplace_back();
    marker.id = adjustment.ids()[i];
    marker.position = toOwn * adjustment.shape()[i];
    marker.deviation = (rotation * covariance.block<3, 3>(at, at) * rotation.transpose())
                           .diagonal()
                           .cwiseMax(0)
                           .cwiseSqrt();
    for (std::size_t j = 0; j < i; ++j) {
      const auto other = static_cast<int>(3 * j);
      const Vector3d apart = adjustment.shape()[i] - adjustment.shape()[j];
      const Vector3d along = apart.normalized();
      const Matrix3d variance =
          covariance.block<3, 3>(at, at) + covariance.block<3, 3>(other, other) -
          covariance.block<3, 3>(at, other) - covariance.block<3, 3>(other, at);
      const std::pair<int, int> pair = {adjustment.ids()[j], adjustment.ids()[i]};
      const auto seen = views.find(pair);
      result.distances.push_back(
          {pair.first, pair.second, apart.norm(),
           std::sqrt(std::max(0.0, along.dot(variance * along))),
           seen == views.end() ? 0 : static_cast<std::int64_t>(seen->second.distances.size())});
    }
  }
  return result;
}

}  // namespace bodies
