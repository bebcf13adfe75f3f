#pragma once

#include <alg_factory/service/ResultBlock.h>
#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_kit/session/Session.h>

#include <cstring>
#include <utility>

namespace testing_support {

/// Units by hand, in the order of a session: each one's call has the next index, 10 ms later.
class UnitMaker {
 public:
  session::Unit init(int productType, const algorithm::StereoCalibration& calibration = {}) {
    session::Unit unit = call(session::CallKind::kInit);
    unit[0].call.type = productType;
    unit[0].call.payload.resize(sizeof calibration);
    std::memcpy(unit[0].call.payload.data(), &calibration, sizeof calibration);
    return unit;
  }

  /// A packet that delivered a block with these objects, at (x, y, z) = (10 k, 20 k, -1000 - k) for
  /// object k, and no others.
  session::Unit block(std::initializer_list<int> objects, session::Bytes packet = {}) {
    session::Unit unit = call(session::CallKind::kInputStream);
    unit[0].call.payload = std::move(packet);
    unit[0].call.length = static_cast<int>(unit[0].call.payload.size());
    algorithm::ResultBlock& block = unit[0].blocks.emplace_back().block;
    for (const int k : objects) {
      block.records[k].id = k;
      block.records[k].x = static_cast<float>(10 * k);
      block.records[k].y = static_cast<float>(20 * k);
      block.records[k].z = static_cast<float>(-1000 - k);
    }
    return unit;
  }

  session::Unit message(const std::string& text) {
    session::Unit unit = call(session::CallKind::kGetFixedCode);
    unit[0].logs.push_back({0, 3, text, false});
    return unit;
  }

 private:
  session::Unit call(session::CallKind kind) {
    session::Unit unit;
    session::Call& call = unit.append().call;
    call.index = next_;
    call.kind = kind;
    call.startNs = next_++ * 10000000;
    call.durationNs = 1000;
    return unit;
  }

  std::int64_t next_ = 0;
};

}  // namespace testing_support
