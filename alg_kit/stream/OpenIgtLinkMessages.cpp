#include <alg_kit/stream/OpenIgtLinkMessages.h>

#include <alg_kit/text/TextFile.h>

#include <igtlPositionMessage.h>
#include <igtlStringMessage.h>
#include <igtlTimeStamp.h>
#include <igtlTransformMessage.h>

#include <algorithm>

namespace stream {
namespace {

constexpr double kMillimetresPerMetre = 1000;

template <typename Message>
void append(std::string& bytes, const Place& place, const std::string& device, Message& message) {
  const std::int64_t ns = std::max<std::int64_t>(place.hostNs, 0);
  auto stamp = igtl::TimeStamp::New();
  stamp->SetTime(static_cast<igtlUint32>(ns / 1000000000),
                 static_cast<igtlUint32>(ns % 1000000000));
  message->SetDeviceName(device.c_str());
  message->SetTimeStamp(stamp);
  message->Pack();
  bytes.append(static_cast<const char*>(message->GetPackPointer()),
               static_cast<std::size_t>(message->GetPackSize()));
}

void appendText(std::string& bytes, const Place& place, const char* device, std::string text) {
  const auto message = igtl::StringMessage::New();
  message->SetEncoding(3);  // US-ASCII
  message->SetString(text);
  append(bytes, place, device, message);
}

}  // namespace

std::string openIgtLinkMessages(const Frame& frame, const LengthUnit& unit) {
  std::string bytes;
  appendText(bytes, frame.place, "Frame",
             "version=" + std::to_string(kVersion) + " frame_number=" +
                 std::to_string(frame.place.frame) + " call=" + std::to_string(frame.place.call) +
                 " host_ns=" + std::to_string(frame.place.hostNs) +
                 " unit=mm frame_id=" + kDeliveredFrame);
  const double scale = unit.metres * kMillimetresPerMetre;
  for (const Object& object : frame.objects) {
    if (!object.seen) continue;
    float p[3];
    for (int i = 0; i < 3; ++i) p[i] = static_cast<float>(object.position[i] * scale);
    const std::string name = "Object" + std::to_string(object.id);

    igtl::Matrix4x4 matrix;
    igtl::IdentityMatrix(matrix);
    for (int i = 0; i < 3; ++i) matrix[i][3] = p[i];
    const auto transform = igtl::TransformMessage::New();
    transform->SetMatrix(matrix);
    append(bytes, frame.place, name, transform);

    const auto position = igtl::PositionMessage::New();
    // With its orientation, though none is known: packed without, OpenIGTLink 1.11 writes the
    // orientation behind the end of its buffer all the same.
    position->SetPosition(p);
    position->SetQuaternion(0, 0, 0, 1);
    append(bytes, frame.place, name + "Position", position);
  }
  return bytes;
}

std::string openIgtLinkMessages(const Message& message) {
  std::string bytes;
  appendText(
      bytes, message.place, "Log",
      "frame_number=" + std::to_string(message.place.frame) + " " + text::escaped(message.text));
  return bytes;
}

}  // namespace stream
