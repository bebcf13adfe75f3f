// What the viewer shows of one device packet.
#pragma once

#include <alg_kit/analysis/TrackStatistics.h>
#include <alg_kit/bodies/BodyPose.h>
#include <alg_kit/trace/PipelineTrace.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace view {

constexpr float kNone = std::numeric_limits<float>::quiet_NaN();

/// What a time line marks. A frame has any of them.
enum class Event : std::uint8_t {
  kGap,      ///< the first packet without an object that was there, or of the recording
  kJump,     ///< an object moved farther than the limit since it was last seen
  kOutlier,  ///< a lonely sighting off an object's track
  kCorrupt,  ///< the packet's own check byte is wrong, or the packet was not decoded
  kMessage,  ///< the library logged something
  kQuery,    ///< the host asked for something
};
constexpr std::size_t kEvents = 6;
using EventSet = std::uint8_t;
constexpr EventSet setOf(Event event) {
  return static_cast<EventSet>(1u << static_cast<unsigned>(event));
}
constexpr EventSet kAllEvents = (1u << kEvents) - 1;

/// For programs: "gap".
const char* keyOf(Event event);

struct FrameObject {
  bool seen = false;                                ///< it is in the block
  bool held = false;                                ///< ... at an earlier place
  analysis::Place raw = analysis::nowhere();        ///< as delivered
  analysis::Place filtered = analysis::nowhere();   ///< the latest answer before the next packet
  analysis::Place estimated = analysis::nowhere();  ///< by the estimator, after this packet
  float estimatedDeviation = kNone;                 ///< mm, root of the sum of the variances
  analysis::Place velocity = analysis::nowhere();   ///< estimated, mm/s
  analysis::Place truth = analysis::nowhere();
  float filteredError = kNone;  ///< to the truth; none where the answer looks ahead
  float epipolar = kNone;       ///< px
  float rayGap = kNone;         ///< unit of the calibration's translation
  std::string key;              ///< of the reason where it is missing or held
  std::string reason;           ///< the same with this packet's numbers
};

/// A body that is followed: BodyPose in few bytes. Delivered axes.
struct FrameBody {
  bool known = false;  ///< the rest holds
  bool seen = false;   ///< in this packet; else it is moved on from earlier ones
  analysis::Place origin = analysis::nowhere();
  std::array<float, 4> orientation{};  ///< quaternion x, y, z, w: turns the body's axes into these
  std::array<float, 3> deviation{};    ///< of the origin, mm
  std::array<float, 3> turnDeviation{};  ///< about these axes, degrees; of a pair not known
  float directionDeviation = 0;          ///< of a pair: degrees, per axis across its line
  float age = 0;                         ///< seconds since a marker was seen
  float residual = kNone;                ///< px
  std::array<bodies::MarkerEnd, bodies::kMostMarkers> ends{};  ///< by place in the body
};

struct FrameBlob {
  int camera = 0;  ///< 0 left, 1 right
  int id = 0;
  float x = 0, y = 0;  ///< pixels, as seen
  int diameter = 0;    ///< pixels
  trace::BlobFate fate = trace::BlobFate::kNoWeight;
  int other = -1;      ///< its partner, or the blob that it was merged into
  std::string reason;  ///< why it ended there
};

struct FrameMessage {
  std::int64_t call = 0;
  int level = 0;
  std::string text;
};

struct Frame {
  static constexpr std::size_t kMostMessages = 32;
  static constexpr std::size_t kLongestText = 400;

  double seconds = 0;       ///< of the recording; never before the frame before
  std::int64_t packet = 0;  ///< also the frame's number, from 0
  std::int64_t call = 0;
  int productType = 0;
  int queries = 0;
  EventSet events = 0;
  std::string decoder;  ///< what the decoder reports; empty = nothing
  float durationUs = kNone;
  std::vector<FrameObject> objects;    ///< by id
  std::vector<FrameBody> bodies;       ///< in the order in which they were given
  std::vector<FrameBlob> blobs;        ///< in packet order
  std::vector<FrameMessage> messages;  ///< the first few, shortened
  int messagesLeftOut = 0;
};

/// A frame as bytes and back, for files of this process alone. The events are kept elsewhere.
std::string bytesOf(const Frame& frame);
Frame frameFrom(const std::string& bytes);

}  // namespace view
