#pragma once

#include <alg_factory/api/AlgFactory.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

/// Stands for the library: it notes how it was called and does what the test scripted.
class ScriptedAlg final : public algorithm::AlgBase {
 public:
  std::vector<std::string> calls;
  algorithm::DataSink* data = nullptr;
  algorithm::LogSink* log = nullptr;
  std::function<bool(ScriptedAlg&)> onInputStream = [](ScriptedAlg&) { return true; };
  std::function<bool(ScriptedAlg&, int)> onHandleEvent = [](ScriptedAlg&, int) { return true; };

  bool deliver(std::uint64_t header) {
    algorithm::ResultBlock block;
    block.header = header;
    return data->Deliver(&block, 0, sizeof block);
  }

  bool Init(int productType, const unsigned char* config, int configOffset) override {
    note("Init", {productType, config != nullptr, configOffset});
    return config != nullptr;
  }
  bool InputStream(int streamType, const unsigned char* buffer, int offset, int length) override {
    note("InputStream", {streamType, buffer != nullptr, offset, length});
    return onInputStream(*this);
  }
  bool SetDataCallback(algorithm::DataSink* sink) override {
    note("SetDataCallback", {sink != nullptr});
    if (sink != nullptr) data = sink;
    return sink != nullptr;
  }
  bool SetLogCallback(algorithm::LogSink* sink) override {
    note("SetLogCallback", {sink != nullptr});
    if (sink != nullptr) log = sink;
    return sink != nullptr;
  }
  bool SetFilterMode(int parameter, int mode, void* reserved) override {
    note("SetFilterMode", {parameter, mode, reserved != nullptr});
    return parameter == 0;
  }
  int GetFixedCode() override {
    note("GetFixedCode", {});
    return 800;
  }
  bool HandleEvent(int eventType, const void* input, void* output) override {
    note("HandleEvent", {eventType, input != nullptr, output != nullptr});
    if (output != nullptr) std::memset(output, 0x40 + eventType, eventType == 16 ? 48 : 52);
    return onHandleEvent(*this, eventType);
  }

 private:
  void note(std::string call, const std::vector<int>& arguments) {
    for (const int argument : arguments) call += " " + std::to_string(argument);
    calls.push_back(call);
  }
};

/// Sinks that do what the test says.
struct ScriptedHost : algorithm::DataSink, algorithm::LogSink {
  std::function<bool(const void*, int, int)> onDeliver = [](const void*, int, int) { return true; };
  std::function<bool(int, const char*)> onLog = [](int, const char*) { return true; };

  bool Deliver(const void* buffer, int offset, int length) override {
    return onDeliver(buffer, offset, length);
  }
  bool Log(int level, const char* message) override { return onLog(level, message); }
};
