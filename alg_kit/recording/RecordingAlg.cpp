#include <alg_kit/recording/RecordingAlg.h>

#include <alg_kit/session/LibraryIdentity.h>

namespace recording {
namespace {

RecorderOptions withFacts(const RecordingAlgOptions& options, const algorithm::AlgBase* alg) {
  RecorderOptions result = options;
  result.facts["clock"] = options.clockName;
  const session::LibraryIdentity library =
      session::identityOf(options.library != nullptr ? *options.library : *alg);
  result.facts["library_file"] = library.file;
  result.facts["library_build_id"] = library.buildId;
  result.facts["library_version"] = library.version.empty() ? ALG_FACTORY_VERSION : library.version;
  return result;
}

}  // namespace

RecordingAlg::RecordingAlg(algorithm::AlgBase* alg, const std::string& path)
    : RecordingAlg(alg, path, RecordingAlgOptions()) {}

RecordingAlg::RecordingAlg(algorithm::AlgBase* alg, const std::string& path,
                           const RecordingAlgOptions& options)
    : TapAlg(alg, options), recorder_(path, withFacts(options, alg)) {
  add(recorder_);
}

RecordingAlg::~RecordingAlg() {
  remove(recorder_);  // which closes itself
}

RecorderStatus RecordingAlg::close(std::chrono::milliseconds limit) {
  remove(recorder_);
  return insideCall() ? recorder_.status() : recorder_.close(limit);
}

}  // namespace recording
