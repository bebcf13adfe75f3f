// A library with the factory and other answers: it refuses everything.
#include <alg_factory/api/AlgFactory.h>

namespace {

class RefusingAlg final : public algorithm::AlgBase {
 public:
  bool Init(int, const unsigned char*, int) override { return false; }
  bool InputStream(int, const unsigned char*, int, int) override { return false; }
  bool SetDataCallback(algorithm::DataSink*) override { return false; }
  bool SetLogCallback(algorithm::LogSink*) override { return false; }
  bool SetFilterMode(int, int, void*) override { return false; }
  int GetFixedCode() override { return 0; }
  bool HandleEvent(int, const void*, void*) override { return false; }
};

}  // namespace

algorithm::AlgBase* algorithm::AlgFactory::CreateALG(int) {
  static RefusingAlg alg;
  return &alg;
}
