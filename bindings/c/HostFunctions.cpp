#include <bindings/c/Host.h>
#include <bindings/c/Records.h>

#include <algorithm>
#include <array>
#include <cstring>

using c_interface::Failure;
using c_interface::give;
using c_interface::guarded;
using c_interface::Host;
using c_interface::requireGiven;
using c_interface::requireRecord;
using c_interface::requireSize;

namespace {

/// A call that must be alone.
template <typename Action>
alg_status alone(alg_host* handle, Action action) noexcept {
  return guarded([&] {
    Host& host = Host::at(handle);
    const Host::Alone guard(host);
    action(host);
    return ALG_OK;
  });
}

const unsigned char* bytesAt(const void* pointer) {
  return static_cast<const unsigned char*>(pointer);
}

}  // namespace

alg_status alg_host_open(int32_t product_type, alg_host** host) {
  return guarded([&] {
    requireGiven(host, "host");
    Host& opened = Host::instance();
    opened.open(product_type);
    *host = opened.handle();
    return ALG_OK;
  });
}

alg_status alg_host_close(alg_host* host) {
  return alone(host, [](Host& h) { h.close(); });
}

alg_status alg_host_on_block(alg_host* host, alg_block_fn function, void* user) {
  return alone(host, [&](Host& h) { h.callbacks().setBlockFunction(function, user); });
}

alg_status alg_host_on_log(alg_host* host, alg_log_fn function, void* user) {
  return alone(host, [&](Host& h) { h.callbacks().setLogFunction(function, user); });
}

alg_status alg_host_init(alg_host* host, const void* calibration, size_t size) {
  return alone(host, [&](Host& h) {
    requireGiven(calibration, "calibration");
    requireSize(size, sizeof(alg_calibration), "calibration");
    h.init(c_interface::calibrationFrom(calibration));
  });
}

alg_status alg_host_feed(alg_host* host, const void* packet, size_t size) {
  return alone(host, [&](Host& h) { h.input(algorithm::kPacket, bytesAt(packet), size); });
}

alg_status alg_host_feed_stamped(alg_host* host, uint32_t stamp, const void* packet, size_t size) {
  return alone(host, [&](Host& h) {
    if (size > 0) requireGiven(packet, "packet");
    std::array<unsigned char, algorithm::kStampSize + algorithm::kMaxPacketSize> payload;
    for (std::size_t i = 0; i < algorithm::kStampSize; ++i)
      payload[i] = static_cast<unsigned char>(stamp >> (8 * i));
    const std::size_t read = std::min<std::size_t>(size, algorithm::kMaxPacketSize);
    if (read > 0) std::memcpy(payload.data() + algorithm::kStampSize, packet, read);
    h.input(algorithm::kStampedPacket, payload.data(), algorithm::kStampSize + read);
  });
}

alg_status alg_host_input(alg_host* host, int32_t stream_type, const void* payload, size_t size) {
  return alone(host, [&](Host& h) { h.input(stream_type, bytesAt(payload), size); });
}

alg_status alg_host_filter_mode(alg_host* host, int32_t mode) {
  return alone(host, [&](Host& h) { h.setFilterMode(mode); });
}

alg_status alg_host_pose(alg_host* host, int32_t object, alg_pose* pose) {
  return alg_host_pose_at(host, object, algorithm::kFilterStateStamp, pose);
}

alg_status alg_host_pose_at(alg_host* host, int32_t object, uint64_t stamp, alg_pose* pose) {
  return guarded([&] {
    const Host& h = Host::at(host);
    requireRecord(pose, "pose");
    h.requireReady();
    if (!algorithm::isPoseEvent(object))
      throw Failure(ALG_BAD_ARGUMENT, "object: expected 0 to 5, found " + std::to_string(object));
    algorithm::PoseAnswer answer;
    if (!h.alg()->HandleEvent(object, &stamp, &answer))
      throw Failure(ALG_REFUSED, "pose: the library refused it");
    give(c_interface::poseFrom(answer), pose);
    return ALG_OK;
  });
}

alg_status alg_host_heading(alg_host* host, const float orientation[4], uint64_t value,
                            alg_heading* heading) {
  return guarded([&] {
    const Host& h = Host::at(host);
    requireGiven(orientation, "orientation");
    requireRecord(heading, "heading");
    h.requireReady();
    algorithm::OrientationSample sample;
    std::copy_n(orientation, 4, sample.orientation);
    sample.value = value;
    algorithm::HeadingAnswer answer;
    if (!h.alg()->HandleEvent(algorithm::kHeadingExchange, &sample, &answer))
      throw Failure(ALG_REFUSED, "heading: the library refused it");
    give(c_interface::headingFrom(answer), heading);
    return ALG_OK;
  });
}

alg_status alg_host_fixed_code(alg_host* host, int32_t* code) {
  return guarded([&] {
    const Host& h = Host::at(host);
    requireGiven(code, "code");
    *code = h.alg()->GetFixedCode();
    return ALG_OK;
  });
}
