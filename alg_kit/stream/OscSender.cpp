#include <alg_kit/stream/OscSender.h>

#include <alg_kit/stream/Output.h>

#include <lo/lo.h>

#include <memory>
#include <type_traits>

namespace stream {
namespace {

struct FreeAddress {
  void operator()(lo_address address) const { lo_address_free(address); }
};
struct FreeBundle {
  void operator()(lo_bundle bundle) const { lo_bundle_free_recursive(bundle); }
};
using Address = std::unique_ptr<std::remove_pointer_t<lo_address>, FreeAddress>;
using Bundle = std::unique_ptr<std::remove_pointer_t<lo_bundle>, FreeBundle>;

/// A message that begins with what every message has: version, frame number, host time in seconds,
/// unit, frame of reference.
class Head {
 public:
  Head(const Place& place, const std::string& unit) : message_(lo_message_new()) {
    lo_message_add_int32(message_, kVersion);
    lo_message_add_int64(message_, place.frame);
    lo_message_add_double(message_, static_cast<double>(place.hostNs) / 1e9);
    lo_message_add_string(message_, unit.c_str());
    lo_message_add_string(message_, kDeliveredFrame);
  }

  lo_message get() const { return message_; }

  /// The bundle owns it from here on.
  void addTo(const Bundle& bundle, const char* path) const {
    lo_bundle_add_message(bundle.get(), path, message_);
  }

 private:
  lo_message message_;
};

/// OSC strings end at their first zero, and are ASCII.
std::string ascii(const std::string& text) {
  std::string result = text.substr(0, 1000);
  for (char& c : result)
    if (c < ' ' || c > '~') c = '?';
  return result;
}

}  // namespace

class OscSender::Sender final : public Output, private Listener {
 public:
  explicit Sender(const OscOptions& options) : options_(options) {}

  Listener& listener() override { return *this; }

  void begin(boost::asio::io_context&) override {
    const std::string port = std::to_string(options_.port);
    const std::string place = options_.host + ":" + port;
    if (options_.port < 1 || options_.port > 65535)
      throw StreamError(place + ": expected a port from 1 to 65535, found " + port);
    address_.reset(lo_address_new(options_.host.c_str(), port.c_str()));
    // Sending shows whether the host is known; a bundle of nothing says nothing.
    if (!address_ || lo_send_bundle(address_.get(), newBundle().get()) < 0)
      throw StreamError(place + ": expected a host that can be sent to, found: " +
                        lo_address_errstr(address_.get()));
  }

  void finish() override {}
  void release() override { address_.reset(); }

 private:
  void onFrame(const Frame& frame) override {
    const Bundle bundle = newBundle();
    for (const Object& object : frame.objects) {
      const Head head(frame.place, options_.unit.name);
      lo_message_add_int32(head.get(), object.id);
      if (object.seen)
        for (const double value : object.position)
          lo_message_add_float(head.get(), static_cast<float>(value));
      head.addTo(bundle, object.seen ? "/alg/object" : "/alg/missing");
    }
    for (const BodyPlace& body : frame.bodies) addBody(frame.place, body, bundle);
    send(bundle);
  }

  void onBlobs(const Blobs& blobs) override {
    if (blobs.blobs.empty()) return;
    const Bundle bundle = newBundle();
    for (const SentBlob& blob : blobs.blobs) {
      const Head head(blobs.place, "px");
      lo_message_add_int32(head.get(), blob.camera);
      lo_message_add_int32(head.get(), blob.id);
      for (const double value : {blob.x, blob.y, blob.weight})
        lo_message_add_float(head.get(), static_cast<float>(value));
      head.addTo(bundle, "/alg/blob");
    }
    send(bundle);
  }

  void onMessage(const Message& message) override {
    const Bundle bundle = newBundle();
    const Head head(message.place, options_.unit.name);
    lo_message_add_int32(head.get(), message.level);
    lo_message_add_string(head.get(), ascii(message.text).c_str());
    head.addTo(bundle, "/alg/log");
    send(bundle);
  }

  void onStatistics(const Statistics& statistics) override {
    const Context& counts = statistics.counts;
    const Bundle bundle = newBundle();
    const Head head(statistics.place, options_.unit.name);
    for (const std::int64_t value :
         {counts.calls, counts.packets, counts.blocks, counts.messages, counts.dropped})
      lo_message_add_int64(head.get(), value);
    lo_message_add_double(head.get(), statistics.packetsPerSecond);
    head.addTo(bundle, "/alg/statistics");
    send(bundle);
  }

  void addBody(const Place& place, const BodyPlace& body, const Bundle& bundle) {
    const Head head(place, options_.unit.name);
    lo_message_add_string(head.get(), body.name.c_str());
    if (!body.known) return head.addTo(bundle, "/alg/missing_body");
    for (const double value : body.position)
      lo_message_add_float(head.get(), static_cast<float>(value));
    for (const double value : body.orientation)
      lo_message_add_float(head.get(), static_cast<float>(value));
    lo_message_add_int32(head.get(), body.markers);
    lo_message_add_float(head.get(), static_cast<float>(body.age));
    head.addTo(bundle, "/alg/body");
  }

  static Bundle newBundle() { return Bundle(lo_bundle_new(LO_TT_IMMEDIATE)); }

  void send(const Bundle& bundle) {
    // Nobody may be listening: a datagram is sent and forgotten.
    if (lo_send_bundle(address_.get(), bundle.get()) < 0)
      ++counters.droppedMessages;
    else
      counters.sentMessages += lo_bundle_count(bundle.get());
  }

  const OscOptions options_;
  Address address_;
};

OscSender::OscSender(const OscOptions& options, session::TapAlg* tap)
    : StreamSink(std::make_shared<Sender>(options), options, tap) {}

OscSender::OscSender(session::TapAlg& tap) : OscSender(OscOptions(), &tap) {}

}  // namespace stream
