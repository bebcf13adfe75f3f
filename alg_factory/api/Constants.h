// Public: installed for hosts.
//
// The numbers of the interface and the rules that go with them: product types, stream types,
// events, sizes and limits. The operations of AlgBase take them as int.
#pragma once

#include <cstddef>
#include <cstdint>

#include <alg_factory/service/HeadingAnswer.h>
#include <alg_factory/service/InertialRecord.h>
#include <alg_factory/service/PoseAnswer.h>

namespace algorithm {

// Product types: which objects a device tracks.

constexpr int kProductTypes = 3;  ///< product types 0, 1 and 2
constexpr int kMaxObjects = 6;    ///< of any product type
constexpr int kNoObject = -1;     ///< the id of a record or an answer that holds no object

/// The objects of a product type. An object's id is its blob id and its record in the result block.
struct ProductObjects {
  int count;                 ///< ids 0 to count - 1
  int markers[kMaxObjects];  ///< marker points of each object
};

/// Index = product type.
inline constexpr ProductObjects kProductObjects[kProductTypes] = {
    {3, {1, 1, 1}}, {3, {1, 1, 2}}, {6, {1, 1, 1, 1, 1, 1}}};

constexpr bool isProductType(int type) {
  return type >= 0 && type < kProductTypes;
}

/// @return 0 for an unknown product type.
constexpr int objectCount(int productType) {
  return isProductType(productType) ? kProductObjects[productType].count : 0;
}

/// @return 0 for an unknown product type or object.
constexpr int markerCount(int productType, int object) {
  const bool known = object >= 0 && object < objectCount(productType);
  return known ? kProductObjects[productType].markers[object] : 0;
}

/// Product types 0 and 1 answer events 0 to 2 from filters that stamped packets feed; product type
/// 2 answers all its events from filters that plain packets feed.
constexpr bool hasHeads(int productType) {
  return productType == 0 || productType == 1;
}

// Stream types: what `InputStream` is given.

enum StreamType : int {
  kPacket = 0,         ///< a device packet
  kAuxVector = 1,      ///< an InertialRecord of which only p is used
  kStampedPacket = 2,  ///< a frame stamp, then a device packet
  kInertialA = 3,      ///< an InertialRecord of device 0
  kInertialB = 4,      ///< an InertialRecord of device 1
  kSideHint = 5,       ///< a SideHint as a 32-bit value
};

constexpr bool isStreamType(int streamType) {
  return streamType >= kPacket && streamType <= kSideHint;
}

/// Which point of the two-point object of product type 1 is the one that is seen alone. Any other
/// value is as kSideByDistance.
enum SideHint : int {
  kSideByDistance = 0,  ///< the nearer one of the pair that was seen last
  kSideFirst = 1,       ///< the one with the smaller x
  kSideSecond = 2,      ///< the other one
};

constexpr int kStampSize = 4;        ///< bytes of the frame stamp before a stamped packet
constexpr int kMaxPacketSize = 512;  ///< bytes of a device packet; what is longer is cut

/// Stream types that run the pipeline and deliver a block.
constexpr bool isPacketStream(int streamType) {
  return streamType == kPacket || streamType == kStampedPacket;
}

/// Bytes that the library reads at least, whatever length it is told. A packet may be longer: all
/// of its length is read. 0 for an unknown stream type.
constexpr std::size_t leastPayloadSize(int streamType) {
  switch (streamType) {
    case kAuxVector:
    case kInertialA:
    case kInertialB:
      return sizeof(InertialRecord);
    case kStampedPacket:
      return kStampSize;
    case kSideHint:
      return sizeof(std::int32_t);
    default:
      return 0;
  }
}

// Filter modes: the `mode` of `SetFilterMode`. Any value but these is as kFilterFast.

enum FilterMode : int {
  kFilterOff = -1,    ///< answers are as measured
  kFilterFast = 0,    ///< measurement noise 1e-6, in squared units of the calibration's translation
  kFilterSmooth = 1,  ///< measurement noise 1e-4
};

// Events: what `HandleEvent` is asked.

enum Event : int {
  kPose0 = 0,  ///< the pose of record 0, and so on
  kPose1 = 1,
  kPose2 = 2,
  kPose3 = 3,
  kPose4 = 4,
  kPose5 = 5,
  kHeadingExchange = 16,  ///< an orientation for the two-point object's heading
};

/// To event 2 of product types 0 and 1: the state of the filter, not extrapolated.
constexpr std::uint64_t kFilterStateStamp = 1234;
/// Event 2 of product types 0 and 1 extrapolates by more than 0 and less than this, in seconds.
constexpr double kMaxExtrapolation = 0.1;
/// Events 0 and 1 of product types 0 and 1: an object nearer than this is answered as measured,
/// unless the filter mode is kFilterSmooth. In the unit of the calibration's translation.
constexpr float kUnfilteredDepth = 1500.0f;
/// Queries for which an object that has vanished goes on being answered, where that is done.
constexpr int kBridgedQueries = 90;

constexpr bool isPoseEvent(int event) {
  return event >= kPose0 && event <= kPose5;
}

constexpr bool isEvent(int event) {
  return isPoseEvent(event) || event == kHeadingExchange;
}

/// Events 0 to 2 of product types 0 and 1 are answered from what stamped packets gave.
constexpr bool isHeadEvent(int productType, int event) {
  return hasHeads(productType) && event >= kPose0 && event <= kPose2;
}

/// Event 2 of product types 0 and 1 is asked for a time: its input is a 64-bit stamp.
constexpr bool readsStamp(int productType, int event) {
  return event == kPose2 && hasHeads(productType);
}

/// Bytes that `HandleEvent` reads at `input`.
constexpr std::size_t eventInputSize(int productType, int event) {
  if (event == kHeadingExchange) return sizeof(OrientationSample);
  return readsStamp(productType, event) ? sizeof(std::uint64_t) : 0;
}

/// Bytes that `HandleEvent` writes at `output`; 0 for an unknown event.
constexpr std::size_t eventAnswerSize(int event) {
  if (event == kHeadingExchange) return sizeof(HeadingAnswer);
  return isPoseEvent(event) ? sizeof(PoseAnswer) : 0;
}

// Messages: the `level` of `LogSink::Log`.

enum LogLevel : int {
  kDecoderMessage = 3,  ///< from the device packet decoder
  kServiceMessage = 4,  ///< from everything else
};

}  // namespace algorithm
