#include <alg_kit/stream/SceneBodies.h>

#include <alg_kit/bodies/BodyFile.h>
#include <alg_kit/text/TextFile.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace stream {
namespace {

constexpr double kMillimetre = 0.001;
// Of OpenIGTLink's device names: what is longer is cut there, and two may then be one.
constexpr std::size_t kNameLength = 20;

/// Outputs name a body in the ways of their protocols, which all have printable ASCII.
void checkName(const std::string& name, const std::string& path,
               const std::vector<std::string>& others) {
  const auto printable = [](char c) { return c >= ' ' && c <= '~'; };
  if (name.empty() || !std::all_of(name.begin(), name.end(), printable))
    throw std::runtime_error(path + ": expected a name of ASCII characters for a stream, found " +
                             text::quoted(name));
  for (const std::string& other : others)
    if (other.substr(0, kNameLength) == name.substr(0, kNameLength))
      throw std::runtime_error(path + ": expected bodies whose names differ in their first " +
                               std::to_string(kNameLength) + " characters, found " +
                               text::quoted(name) + " again");
}

BodyPlace placeOf(const bodies::TrackedPose& pose) {
  BodyPlace place;
  place.known = pose.source != estimate::Source::kNone;
  if (!place.known) return place;
  place.seen = pose.source == estimate::Source::kMeasured;
  place.age = pose.age;
  place.markers = pose.pose.markers;
  place.residual = pose.pose.residual;
  place.directionDeviation = pose.pose.directionDeviation;
  for (int i = 0; i < 3; ++i) {
    place.position[i] = pose.pose.motion.position[i];
    place.positionDeviation[i] = std::sqrt(pose.pose.covariance(i, i));
    place.rotationDeviation[i] = std::sqrt(pose.pose.covariance(3 + i, 3 + i));
  }
  for (int i = 0; i < 4; ++i) place.orientation[i] = pose.pose.motion.orientation.coeffs()[i];
  return place;
}

}  // namespace

Scene::Bodies::Bodies(const SceneOptions& options) {
  if (options.unit.metres != kMillimetre)
    throw std::runtime_error("bodies: expected a calibration in mm, as bodies are, found " +
                             options.unit.name);
  std::vector<bodies::Body> all;
  for (const std::string& path : options.bodies) {
    all.push_back(bodies::readBody(path, bodies::Pairs::kTaken));
    checkName(all.back().name, path, names_);
    names_.push_back(all.back().name);
  }
  live_.emplace(all, options.frameRate);
}

void Scene::Bodies::take(const session::Call& call, const Context& context,
                         std::vector<BodyPlace>& places) {
  if (call.kind == session::CallKind::kInit)
    inits_ = context.inits;
  else if (inits_ != context.inits && context.calibrated) {
    inits_ = context.inits;
    live_->begin(context.productType, context.calibration);
  }
  const bool looked = live_->take(call);
  places.resize(names_.size());
  for (std::size_t i = 0; i < names_.size(); ++i) {
    places[i] = looked ? placeOf(live_->at(i)) : BodyPlace();
    places[i].name = names_[i];
  }
}

}  // namespace stream
