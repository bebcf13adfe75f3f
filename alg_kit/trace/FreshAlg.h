#pragma once

#include <alg_factory/api/AlgBase.h>
#include <alg_factory/service/StereoService.h>

namespace trace {

/// The interface before a pipeline of its own, so that one process can begin many lives: one replay
/// after the other, each with a library that was not used before. (What the factory makes shares
/// one pipeline.)
class FreshAlg : public algorithm::AlgBase {
 public:
  bool Init(int productType, const unsigned char* config, int configOffset) override {
    return service.initialize(productType, config, configOffset);
  }
  bool InputStream(int streamType, const unsigned char* buffer, int offset, int length) override {
    return service.inputStream(streamType, buffer, offset, length);
  }
  bool SetDataCallback(algorithm::DataSink* sink) override { return service.setDataCallback(sink); }
  bool SetLogCallback(algorithm::LogSink* sink) override { return service.setLogCallback(sink); }
  bool SetFilterMode(int parameter, int mode, void* reserved) override {
    return service.setFilterMode(parameter, mode, reserved);
  }
  int GetFixedCode() override { return 800; }
  bool HandleEvent(int eventType, const void* input, void* output) override {
    return service.handleEvent(eventType, input, output);
  }

  algorithm::StereoService service;
};

}  // namespace trace
