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

/// Row by row, of a unit quaternion x, y, z, w.
void setRotation(const double (&q)[4], igtl::Matrix4x4& matrix) {
  const double x = q[0], y = q[1], z = q[2], w = q[3];
  const double rows[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)},
                             {2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x)},
                             {2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)}};
  for (int row = 0; row < 3; ++row)
    for (int column = 0; column < 3; ++column)
      matrix[row][column] = static_cast<float>(rows[row][column]);
}

void appendBody(std::string& bytes, const Place& place, const BodyPlace& body) {
  igtl::Matrix4x4 matrix;
  igtl::IdentityMatrix(matrix);
  setRotation(body.orientation, matrix);
  for (int i = 0; i < 3; ++i) matrix[i][3] = static_cast<float>(body.position[i]);
  const auto transform = igtl::TransformMessage::New();
  transform->SetMatrix(matrix);
  append(bytes, place, body.name, transform);
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
  for (const BodyPlace& body : frame.bodies)
    if (body.known) appendBody(bytes, frame.place, body);
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
