#pragma once

#include <alg_factory/service/HeadingAnswer.h>
#include <alg_factory/service/PoseAnswer.h>
#include <alg_kit/session/Session.h>

#include <optional>

namespace analysis {

/// The answer of a pose query that found its object.
std::optional<algorithm::PoseAnswer> poseOf(const session::Call& call);

/// The answer of a heading exchange.
std::optional<algorithm::HeadingAnswer> headingOf(const session::Call& call);

}  // namespace analysis
