#include <alg_kit/view/Frame.h>

#include <cstring>
#include <stdexcept>
#include <type_traits>

namespace view {
namespace {

/// One description of the layout for both directions.
class Writer {
 public:
  template <typename Value>
  void value(const Value& value) {
    static_assert(std::is_trivially_copyable_v<Value>);
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  void text(const std::string& text) {
    value(static_cast<std::uint16_t>(text.size()));
    bytes += text;
  }
  template <typename Item, typename Each>
  void list(const std::vector<Item>& items, Each each) {
    value(static_cast<std::uint16_t>(items.size()));
    for (const Item& item : items) each(item);
  }
  std::string bytes;
};

class Reader {
 public:
  explicit Reader(const std::string& bytes) : bytes_(bytes) {}
  template <typename Value>
  void value(Value& value) {
    std::memcpy(&value, take(sizeof value), sizeof value);
  }
  void text(std::string& text) {
    std::uint16_t size = 0;
    value(size);
    text.assign(take(size), size);
  }
  template <typename Item, typename Each>
  void list(std::vector<Item>& items, Each each) {
    std::uint16_t size = 0;
    value(size);
    items.resize(size);
    for (Item& item : items) each(item);
  }

 private:
  const char* take(std::size_t size) {
    if (size > bytes_.size() - at_) throw std::runtime_error("temporary file: a frame is cut");
    at_ += size;
    return bytes_.data() + at_ - size;
  }
  const std::string& bytes_;
  std::size_t at_ = 0;
};

template <typename Form, typename Given>
void go(Form& form, Given& frame) {
  form.value(frame.seconds);
  form.value(frame.packet);
  form.value(frame.call);
  form.value(frame.productType);
  form.value(frame.queries);
  form.value(frame.durationUs);
  form.value(frame.messagesLeftOut);
  form.text(frame.decoder);
  form.list(frame.objects, [&](auto& object) {
    form.value(object.seen);
    form.value(object.held);
    form.value(object.raw);
    form.value(object.filtered);
    form.value(object.estimated);
    form.value(object.estimatedDeviation);
    form.value(object.velocity);
    form.value(object.truth);
    form.value(object.filteredError);
    form.value(object.epipolar);
    form.value(object.rayGap);
    form.text(object.key);
    form.text(object.reason);
  });
  form.list(frame.bodies, [&](auto& body) { form.value(body); });
  form.list(frame.blobs, [&](auto& blob) {
    form.value(blob.camera);
    form.value(blob.id);
    form.value(blob.x);
    form.value(blob.y);
    form.value(blob.diameter);
    form.value(blob.fate);
    form.value(blob.other);
    form.text(blob.reason);
  });
  form.list(frame.messages, [&](auto& message) {
    form.value(message.call);
    form.value(message.level);
    form.text(message.text);
  });
}

}  // namespace

const char* keyOf(Event event) {
  constexpr const char* kKeys[kEvents] = {"gap", "jump", "outlier", "corrupt", "message", "query"};
  return kKeys[static_cast<std::size_t>(event)];
}

std::string bytesOf(const Frame& frame) {
  Writer writer;
  go(writer, frame);
  return std::move(writer.bytes);
}

Frame frameFrom(const std::string& bytes) {
  Frame frame;
  Reader reader(bytes);
  go(reader, frame);
  return frame;
}

}  // namespace view
