#include <alg_kit/analysis/Answers.h>

#include <alg_factory/api/Constants.h>

#include <cstring>

namespace analysis {
namespace {

template <typename Answer>
std::optional<Answer> answerOf(const session::Call& call, bool isAsked) {
  Answer answer;
  if (call.kind != session::CallKind::kHandleEvent || !isAsked ||
      call.output.size() != sizeof answer)
    return std::nullopt;
  std::memcpy(&answer, call.output.data(), sizeof answer);
  return answer;
}

}  // namespace

std::optional<algorithm::PoseAnswer> poseOf(const session::Call& call) {
  auto answer = answerOf<algorithm::PoseAnswer>(call, algorithm::isPoseEvent(call.type));
  if (answer && answer->id == algorithm::kNoObject) answer.reset();
  return answer;
}

std::optional<algorithm::HeadingAnswer> headingOf(const session::Call& call) {
  return answerOf<algorithm::HeadingAnswer>(call, call.type == algorithm::kHeadingExchange);
}

}  // namespace analysis
