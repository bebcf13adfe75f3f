// The bodies of a stream. Not for hosts: it needs Eigen's headers.
#pragma once

#include <alg_kit/bodies/LiveBodies.h>
#include <alg_kit/stream/Scene.h>

#include <optional>
#include <string>
#include <vector>

namespace stream {

class Scene::Bodies {
 public:
  /// @throws std::runtime_error in one line: a file that is no body, two of one name, a unit that
  ///         is not mm
  explicit Bodies(const SceneOptions& options);

  /// Every call that is heard of, in order.
  /// @param context  behind the call: what it says of an Init holds where its call was missed
  /// @param places   of all bodies; not known where the call was no packet
  void take(const session::Call& call, const Context& context, std::vector<BodyPlace>& places);

 private:
  std::vector<std::string> names_;
  std::optional<bodies::LiveBodies> live_;
  std::int64_t inits_ = 0;  ///< that were heard of
};

}  // namespace stream
