#pragma once

#include <cstdint>

#include <alg_factory/api/AlgBase.h>

namespace algorithm {

/// The one implementation of the interface. It holds no pipeline: every operation forwards to the
/// process-wide service.
class StereoSubsystem : public AlgBase {
 public:
  bool Init(int productType, const unsigned char* config, int configOffset) override;
  bool InputStream(int streamType, const unsigned char* buffer, int offset, int length) override;
  bool SetDataCallback(DataSink* sink) override;
  bool SetLogCallback(LogSink* sink) override;
  bool SetFilterMode(int parameter, int mode, void* reserved) override;
  int GetFixedCode() override;
  bool HandleEvent(int eventType, const void* input, void* output) override;

 private:
  std::int32_t productType_;  ///< last passed to `Init`; for a debugger: the service has its own
};

}  // namespace algorithm
