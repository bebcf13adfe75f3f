// A complete host: one marker, seen by both cameras, becomes a position in millimetres.
#include <alg_factory/api/AlgFactory.h>

#include <cstdio>

struct Host : algorithm::DataSink, algorithm::LogSink {
  bool seen = false;

  bool Deliver(const void* buffer, int, int) override {
    const auto& block = *static_cast<const algorithm::ResultBlock*>(buffer);
    for (const auto& p : block.records)
      if (p.id != -1) std::printf("block: object %d at %.1f %.1f %.1f mm\n", p.id, p.x, p.y, p.z);
    return seen = block.records[0].id == 0;
  }
  bool Log(int level, const char* text) override { return std::printf("%d %s", level, text) > 0; }
};

int main() {
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
  static algorithm::AlgBase* const alg = algorithm::AlgFactory::CreateALG(2);
  alg->SetLogCallback(&host);
  alg->SetDataCallback(&host);
  if (!alg->Init(2, reinterpret_cast<const unsigned char*>(&c), 0)) return 1;
  alg->SetFilterMode(0, 0, nullptr);

  const unsigned char packet[] = {
      0xAA, 0x55,  // start, then per blob: weight, camera and id, weight * x, weight * y
      0xF8, 0x2A, 0, 0x00, 0x60, 0x11, 0x39, 0, 0xC0, 0x91, 0x21, 0,  // left: 11000 at (340, 200)
      0xF8, 0x2A, 0, 0x10, 0xA0, 0x5A, 0x32, 0, 0xC0, 0x91, 0x21, 0,  // right: 11000 at (300, 200)
      0x0D};  // check byte: the sum of all bytes before it
  alg->InputStream(0, packet, 0, sizeof packet);

  algorithm::PoseAnswer pose;
  alg->HandleEvent(0, nullptr, &pose);
  std::printf("query: object %d at %.1f %.1f %.1f mm\n", pose.id, pose.filtered[0],
              pose.filtered[1], pose.filtered[2]);
  return host.seen ? 0 : 1;
}
