// Units of a body that the built-in rig sees at rest.
#pragma once

#include <alg_kit/bodies/BodyFile.h>
#include <tests/kit/bodies/BodyPackets.h>
#include <tests/support/ScratchFolder.h>
#include <tests/support/StreamedUnits.h>

#include <string>

namespace testing_support {

/// Delivered, the body of `leaning` is at (100, 50, -1500).
class StreamedBody {
 public:
  std::string file() const { return named("tool"); }
  std::string named(const std::string& name) const {
    bodies::Body body = sixMarkers();
    body.name = name;
    return folder_.write(name.substr(0, 30) + ".json", bodies::bodyText(body));
  }
  std::string write(const std::string& text) const { return folder_.write("other.json", text); }

  std::string pair() const {
    return folder_.write("stick.json", bodies::bodyText(pairOfMarkers()));
  }

  session::Unit init() { return units.init(2, rig::builtInRig().calibration); }
  session::Unit packet() {
    return units.block({}, packetOf(seen(sixMarkers(), leaning(), 0, random_)));
  }
  session::Unit pairPacket() {
    return units.block({}, packetOf(seen(pairOfMarkers(), leaning(), 0, random_)));
  }
  session::Unit darkPacket() { return units.block({}, sim::devicePacket({})); }

  UnitMaker units;

 private:
  ScratchFolder folder_;
  sim::Random random_{5};
};

}  // namespace testing_support
