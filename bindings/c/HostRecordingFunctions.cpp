#include <bindings/c/Host.h>
#include <bindings/c/KitErrors.h>

#include <alg_kit/recording/RecordingAlg.h>

#include <memory>
#include <string>

using c_interface::Failure;
using c_interface::give;
using c_interface::guardedWithFiles;
using c_interface::Host;
using c_interface::HostRecording;
using c_interface::RecordingEnd;
using c_interface::requireGiven;
using c_interface::requireRecord;
using c_interface::taken;

namespace {

/// The library behind a recorder. What is only to be written down does not reach it.
class Forward final : public algorithm::AlgBase {
 public:
  explicit Forward(algorithm::AlgBase& library) : library_(library) {}

  bool onlyWriteDown = false;

  bool Init(int productType, const unsigned char* config, int configOffset) override {
    return onlyWriteDown || library_.Init(productType, config, configOffset);
  }
  bool InputStream(int streamType, const unsigned char* buffer, int offset, int length) override {
    return library_.InputStream(streamType, buffer, offset, length);
  }
  bool SetDataCallback(algorithm::DataSink* sink) override {
    return library_.SetDataCallback(sink);
  }
  bool SetLogCallback(algorithm::LogSink* sink) override { return library_.SetLogCallback(sink); }
  bool SetFilterMode(int parameter, int mode, void* reserved) override {
    return onlyWriteDown || library_.SetFilterMode(parameter, mode, reserved);
  }
  int GetFixedCode() override { return library_.GetFixedCode(); }
  bool HandleEvent(int eventType, const void* input, void* output) override {
    return library_.HandleEvent(eventType, input, output);
  }

 private:
  algorithm::AlgBase& library_;
};

class FileRecording final : public HostRecording {
 public:
  FileRecording(algorithm::AlgBase& library, const std::string& path, bool overwrite)
      : parts_(std::make_shared<Parts>(library, path, overwrite)), path_(path) {}

  std::shared_ptr<algorithm::AlgBase> alg() override { return {parts_, &parts_->recorder}; }

  void repeat(const c_interface::SetUp& setUp) override {
    parts_->forward.onlyWriteDown = true;
    if (setUp.calibration) {
      const auto* const bytes = reinterpret_cast<const unsigned char*>(&*setUp.calibration);
      parts_->recorder.Init(setUp.productType, bytes, 0);
    }
    if (setUp.filterMode) parts_->recorder.SetFilterMode(0, *setUp.filterMode, nullptr);
    parts_->forward.onlyWriteDown = false;
  }

  alg_record_status status() const override { return from(parts_->recorder.status()); }

  RecordingEnd close() override {
    const recording::RecorderStatus status = parts_->recorder.close();
    std::string problem = status.error;
    if (problem.empty() && status.dropped > 0)
      problem = path_ + ": expected every call, found " + std::to_string(status.dropped) +
                " too many for the disk";
    return {from(status), problem};
  }

 private:
  /// Lives until the last call through the recorder has returned.
  struct Parts {
    Parts(algorithm::AlgBase& library, const std::string& path, bool overwrite)
        : forward(library), recorder(&forward, path, options(library, overwrite)) {}

    static recording::RecordingAlgOptions options(algorithm::AlgBase& library, bool overwrite) {
      recording::RecordingAlgOptions result;
      result.overwrite = overwrite;
      result.library = &library;
      return result;
    }

    Forward forward;
    recording::RecordingAlg recorder;
  };

  static alg_record_status from(const recording::RecorderStatus& status) {
    alg_record_status result{};
    result.closed = status.closed ? 1 : 0;
    result.written = status.written;
    result.dropped = status.dropped;
    return result;
  }

  std::shared_ptr<Parts> parts_;
  std::string path_;
};

}  // namespace

alg_status alg_host_record(alg_host* host, const char* path, const alg_record_options* options) {
  return guardedWithFiles([&] {
    Host& h = Host::at(host);
    const Host::Alone alone(h);
    requireGiven(path, "path");
    const bool overwrite = taken(options, "options").overwrite != 0;
    if (h.recording() != nullptr)
      throw Failure(ALG_BUSY, "host: expected one that is not recorded, found one that is");
    h.record(std::make_unique<FileRecording>(h.library(), path, overwrite));
    return ALG_OK;
  });
}

alg_status alg_host_record_stop(alg_host* host, alg_record_status* status) {
  return guardedWithFiles([&] {
    Host& h = Host::at(host);
    const Host::Alone alone(h);
    if (status != nullptr) requireRecord(status, "status");
    if (h.recording() == nullptr) return ALG_NONE;
    const RecordingEnd end = h.stopRecording();
    if (status != nullptr) give(end.status, status);
    if (!end.problem.empty()) throw Failure(ALG_FILE, end.problem);
    return ALG_OK;
  });
}

alg_status alg_host_record_status(alg_host* host, alg_record_status* status) {
  return guardedWithFiles([&] {
    Host& h = Host::at(host);
    const Host::Alone alone(h);
    requireRecord(status, "status");
    if (h.recording() == nullptr) return ALG_NONE;
    give(h.recording()->status(), status);
    return ALG_OK;
  });
}
