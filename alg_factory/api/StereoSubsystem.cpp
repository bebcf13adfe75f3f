#include <alg_factory/api/StereoSubsystem.h>

#include <alg_factory/service/ServiceCall.h>
#include <alg_factory/service/StereoService.h>

namespace algorithm {

bool StereoSubsystem::Init(int productType, const unsigned char* config, int configOffset) {
  productType_ = productType;
  const ServiceCall service;
  return service && service->initialize(productType, config, configOffset);
}

bool StereoSubsystem::InputStream(int streamType, const unsigned char* buffer, int offset,
                                  int length) {
  const ServiceCall service;
  return service && service->inputStream(streamType, buffer, offset, length);
}

bool StereoSubsystem::SetDataCallback(DataSink* sink) {
  if (sink == nullptr) return false;
  const ServiceCall service;
  return service && service->setDataCallback(sink);
}

bool StereoSubsystem::SetLogCallback(LogSink* sink) {
  if (sink == nullptr) return false;
  const ServiceCall service;
  return service && service->setLogCallback(sink);
}

bool StereoSubsystem::SetFilterMode(int parameter, int mode, void* reserved) {
  const ServiceCall service;
  return service && service->setFilterMode(parameter, mode, reserved);
}

int StereoSubsystem::GetFixedCode() {
  return 800;
}

bool StereoSubsystem::HandleEvent(int eventType, const void* input, void* output) {
  const ServiceCall service;
  return service && service->handleEvent(eventType, input, output);
}

}  // namespace algorithm
