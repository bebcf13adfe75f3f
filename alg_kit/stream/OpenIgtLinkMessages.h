#pragma once

#include <alg_kit/stream/Scene.h>

#include <string>

namespace stream {

/// A block as OpenIGTLink messages, one behind the other, ready for the socket: a STRING with frame
/// number, unit and frame of reference, then a TRANSFORM and a POSITION for each object that was
/// seen, and a TRANSFORM with its rotation for each body that is known, named as the body.
/// Positions in mm, delivered axes; host time as the time stamp.
std::string openIgtLinkMessages(const Frame& frame, const LengthUnit& unit);

/// A message of the library as a STRING of the device "Log".
std::string openIgtLinkMessages(const Message& message);

}  // namespace stream
