// What a Visual C++ host compiles: the public header's assertions hold there, and the assembly
// names what it links against. It is built for that and run: a host of one compiler's, a library of
// the other's.
#include <alg_factory/api/AlgFactory.h>

namespace {

int blocks = 0;
int lines = 0;

struct Sink : algorithm::DataSink, algorithm::LogSink {
  bool Deliver(const void* buffer, int offset, int length) override {
    const auto& block = *static_cast<const algorithm::ResultBlock*>(buffer);
    blocks += offset == 0 && length == sizeof block && block.records[0].id == 0;
    return true;
  }
  bool Log(int level, const char* message) override {
    lines += level == 4 && message[0] == 'a';
    return true;
  }
};

}  // namespace

// What Visual C++'s run-time library would bring: the mark of a program that uses floating point,
// and the functions that the compiler calls by itself.
extern "C" {
int _fltused = 0;

void* memset(void* to, int value, size_t count) {
  for (size_t i = 0; i < count; ++i) static_cast<volatile char*>(to)[i] = static_cast<char>(value);
  return to;
}
}

// Named by the sinks' destructors, and never called.
void operator delete(void*) noexcept {}
void operator delete(void*, size_t) noexcept {}

/// The program's entry. Its exit code is 0, or the number of the first step that went wrong.
extern "C" int start() {
  Sink sink;
  algorithm::AlgFactory factory, other;
  other = factory;
  if (algorithm::AlgFactory::CreateALG(3) != nullptr) return 1;
  algorithm::AlgBase* alg = algorithm::AlgFactory::CreateALG(2);
  if (alg == nullptr) return 2;
  if (alg->GetFixedCode() != 800) return 3;
  if (!alg->SetLogCallback(&sink) || !alg->SetDataCallback(&sink)) return 4;

  algorithm::StereoCalibration c;
  c.leftIntrinsics[0] = c.leftIntrinsics[4] = c.rightIntrinsics[0] = c.rightIntrinsics[4] = 400;
  c.leftIntrinsics[2] = c.rightIntrinsics[2] = 320;
  c.leftIntrinsics[5] = c.rightIntrinsics[5] = 240;
  c.leftIntrinsics[8] = c.rightIntrinsics[8] = 1;
  c.rotation[0] = c.rotation[4] = c.rotation[8] = 1;
  c.translation[0] = -100;
  c.fundamental[5] = 1, c.fundamental[7] = -1;
  if (!alg->Init(2, reinterpret_cast<const unsigned char*>(&c), 0)) return 5;
  if (!alg->SetFilterMode(0, 0, nullptr) || alg->SetFilterMode(1, 0, nullptr)) return 6;

  const unsigned char packet[] = {0xAA, 0x55,  // one blob per camera
                                  0xF8, 0x2A, 0,    0x00, 0x60, 0x11, 0x39, 0,    0xC0,
                                  0x91, 0x21, 0,    0xF8, 0x2A, 0,    0x10, 0xA0, 0x5A,
                                  0x32, 0,    0xC0, 0x91, 0x21, 0,    0x0D};
  if (!alg->InputStream(0, packet, 0, sizeof packet) || blocks != 1) return 7;
  algorithm::PoseAnswer pose;
  if (!alg->HandleEvent(0, nullptr, &pose) || pose.id != 0) return 8;
  // A baseline of 100 mm, a focal length of 400 pixels and 40 pixels of disparity: 1 m.
  if (!(pose.raw[2] < -980 && pose.raw[2] > -1020)) return 9;
  if (alg->HandleEvent(7, nullptr, nullptr) || lines != 1) return 10;
  return 0;
}
