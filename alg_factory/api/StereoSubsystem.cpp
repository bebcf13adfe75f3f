#include <alg_factory/api/StereoSubsystem.h>

#include <alg_factory/service/StereoService.h>

namespace algorithm {

bool StereoSubsystem::Init(int productType, const unsigned char* config, int configOffset) {
  productType_ = productType;
  return StereoService::instance()->initialize(productType, config, configOffset);
}

bool StereoSubsystem::InputStream(int streamType, const unsigned char* buffer, int offset,
                                  int length) {
  return StereoService::instance()->inputStream(streamType, buffer, offset, length);
}

bool StereoSubsystem::SetDataCallback(DataSink* sink) {
  return sink != nullptr && StereoService::instance()->setDataCallback(sink);
}

bool StereoSubsystem::SetLogCallback(LogSink* sink) {
  return sink != nullptr && StereoService::instance()->setLogCallback(sink);
}

bool StereoSubsystem::SetFilterMode(int parameter, int mode, void* reserved) {
  return StereoService::instance()->setFilterMode(parameter, mode, reserved);
}

int StereoSubsystem::GetFixedCode() {
  return 800;
}

bool StereoSubsystem::HandleEvent(int eventType, const void* input, void* output) {
  return StereoService::instance()->handleEvent(eventType, input, output);
}

}  // namespace algorithm
