// A host that is not linked against the library: it loads the file that its first argument names.
// Only the factory is looked up by name; everything else goes through the virtual table.
#include <alg_factory/api/AlgFactory.h>

#include <cstdio>
#include <cstring>

#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace {

// A static member function is called like a free one.
using CreateAlg = algorithm::AlgBase* (*)(int);

#if defined(_MSC_VER)
const char* const kFactory = "?CreateALG@AlgFactory@algorithm@@SAPEAVAlgBase@2@H@Z";
#else
const char* const kFactory = "_ZN9algorithm10AlgFactory9CreateALGEi";
#endif

/// Null with a message on failure. The library is never unloaded: its objects have no release.
CreateAlg loadFactory(const char* file) {
  CreateAlg create = nullptr;
#if defined(_WIN32)
  const HMODULE library = LoadLibraryA(file);
  if (!library) {
    std::fprintf(stderr, "%s: error %lu\n", file, GetLastError());
    return nullptr;
  }
  const auto symbol = GetProcAddress(library, kFactory);
#else
  void* const library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    std::fprintf(stderr, "%s\n", dlerror());
    return nullptr;
  }
  void* const symbol = dlsym(library, kFactory);
#endif
  static_assert(sizeof create == sizeof symbol, "functions are found as plain pointers");
  std::memcpy(&create, &symbol, sizeof create);
  if (!create) std::fprintf(stderr, "%s has no %s\n", file, kFactory);
  return create;
}

struct Host : algorithm::DataSink, algorithm::LogSink {
  int blocks = 0;
  bool Deliver(const void*, int, int) override { return ++blocks > 0; }
  bool Log(int level, const char* text) override { return std::printf("%d %s", level, text) > 0; }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s LIBRARY\n", argv[0]);
    return 2;
  }
  const CreateAlg create = loadFactory(argv[1]);
  if (!create) return 1;

  // Two equal fisheye cameras that look the same way, the left one 100 mm to the left.
  algorithm::StereoCalibration c;
  c.leftIntrinsics[0] = c.leftIntrinsics[4] = c.rightIntrinsics[0] = c.rightIntrinsics[4] = 400;
  c.leftIntrinsics[2] = c.rightIntrinsics[2] = 320;
  c.leftIntrinsics[5] = c.rightIntrinsics[5] = 240;
  c.leftIntrinsics[8] = c.rightIntrinsics[8] = 1;
  c.rotation[0] = c.rotation[4] = c.rotation[8] = 1;
  c.translation[0] = -100;
  c.fundamental[5] = 1, c.fundamental[7] = -1;  // a point's partner lies in the same row

  static Host host;  // the library keeps the sinks
  algorithm::AlgBase* const alg = create(0);
  if (!alg) return 1;
  alg->SetLogCallback(&host);
  alg->SetDataCallback(&host);
  if (!alg->Init(2, reinterpret_cast<const unsigned char*>(&c), 0)) return 1;

  const unsigned char packet[] = {
      0xAA, 0x55,  // start, then per blob: weight, camera and id, weight * x, weight * y
      0xF8, 0x2A, 0, 0x00, 0x60, 0x11, 0x39, 0, 0xC0, 0x91, 0x21, 0,  // left: 11000 at (340, 200)
      0xF8, 0x2A, 0, 0x10, 0xA0, 0x5A, 0x32, 0, 0xC0, 0x91, 0x21, 0,  // right: 11000 at (300, 200)
      0x0D};  // check byte: the sum of all bytes before it
  if (!alg->InputStream(0, packet, 0, sizeof packet) || host.blocks != 1) return 1;

  algorithm::PoseAnswer pose;
  if (!alg->HandleEvent(0, nullptr, &pose)) return 1;
  std::printf("object %d at %.1f %.1f %.1f mm\n", pose.id, pose.raw[0], pose.raw[1], pose.raw[2]);
  return pose.id == 0 ? 0 : 1;
}
