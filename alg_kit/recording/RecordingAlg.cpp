#include <alg_kit/recording/RecordingAlg.h>

namespace recording {
namespace {

RecorderOptions withClock(const RecordingAlgOptions& options) {
  RecorderOptions result = options;
  result.facts["clock"] = options.clockName;
  return result;
}

}  // namespace

RecordingAlg::RecordingAlg(algorithm::AlgBase* alg, const std::string& path)
    : RecordingAlg(alg, path, RecordingAlgOptions()) {}

RecordingAlg::RecordingAlg(algorithm::AlgBase* alg, const std::string& path,
                           const RecordingAlgOptions& options)
    : TapAlg(alg, options), recorder_(path, withClock(options)) {
  add(recorder_);
}

RecordingAlg::~RecordingAlg() {
  close();
}

RecorderStatus RecordingAlg::close() {
  remove(recorder_);
  return insideCall() ? recorder_.status() : recorder_.close();
}

}  // namespace recording
