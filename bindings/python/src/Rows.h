// The rows of a recording's tables, as numpy's structured arrays have them. Plain records.
#pragma once

#include <alg_factory/service/ResultBlock.h>

#include <cstdint>

namespace bindings {

constexpr std::int64_t kNone = -1;  ///< where a number is missing

struct CallRow {
  double time = 0;  ///< seconds since the recording's first call
  std::int64_t call = 0;
  std::int64_t parent = kNone;  ///< the call in whose callback this one was made
  std::int32_t kind = 0;        ///< session::CallKind
  std::int32_t type = 0;
  std::int32_t mode = 0;
  std::int32_t length = 0;
  std::int32_t returned = kNone;  ///< 0 or 1, or the fixed code; kNone = an exception
  std::int32_t payloadSize = 0;
  std::int64_t payloadBegin = 0;  ///< in Columns::payloads
  std::int64_t startNs = 0;
  std::int64_t durationNs = kNone;
};

struct PacketRow {
  double time = 0;
  std::int64_t call = 0;
  std::int64_t packet = 0;
  std::int32_t streamType = 0;
  std::uint32_t stamp = 0;  ///< microseconds; 0 for stream type 0
  std::int32_t length = 0;  ///< bytes of the payload
  std::int32_t blocks = 0;  ///< delivered by it
};

struct BlockRow {
  double time = 0;
  std::int64_t call = 0;
  std::int64_t packet = kNone;
  std::uint64_t stamp = 0;
  algorithm::TrackedPoint records[algorithm::ResultBlock::kRecords];
};

struct AnswerRow {
  double time = 0;
  std::int64_t call = 0;
  std::int64_t packet = kNone;  ///< the latest one
  std::int32_t event = 0;
  std::int32_t id = kNone;
  float raw[3] = {};
  float filtered[3] = {};
  float rate[3] = {};
};

struct HeadingRow {
  double time = 0;
  std::int64_t call = 0;
  std::int64_t packet = kNone;
  float orientation[4] = {};
  float yaw = 0;
  float negatedCorrectedYaw = 0;
  float score = 0;
  std::int32_t status = 0;
};

struct LogRow {
  double time = 0;
  std::int64_t call = 0;
  std::int64_t packet = kNone;
  std::int32_t level = 0;
  std::int32_t text = 0;  ///< index in Columns::texts
};

struct TruthColumnRow {
  double time = 0;
  std::int64_t frame = 0;
  std::int64_t call = kNone;  ///< kNone = the packet was lost
  std::int32_t object = 0;
  std::int32_t marker = 0;
  double position[3] = {};  ///< right camera's frame, mm
  bool inLeft = false;
  bool inRight = false;
};

struct BlobRow {
  double time = 0;
  std::int64_t call = 0;
  std::int64_t packet = 0;
  std::int32_t camera = 0;
  std::int32_t id = 0;
  double x = 0, y = 0;  ///< px
  std::int32_t diameter = 0;
  std::int32_t end = 0;  ///< trace::BlobFate
  double value = 0;      ///< what decided ...
  double limit = 0;      ///< ... and the limit that it met
  std::int32_t other = kNone;
  std::int32_t blob = 0;  ///< place in the packet
};

struct TrackColumnRow {
  double time = 0;
  std::int64_t call = 0;
  std::int32_t object = 0;
  std::int32_t source = 0;  ///< estimate::Source
  double age = 0;
  double position[3] = {};
  double velocity[3] = {};
  double deviation[3] = {};
  double covariance[9][9] = {};
};

struct BodyMarkerRow {
  std::int32_t id = 0;
  double position[3] = {};   ///< body's frame, mm
  double deviation[3] = {};  ///< mm; 0 = not known
  double facing[3] = {};     ///< unit vector; zero = not known
};

struct BodyDistanceRow {
  std::int32_t first = 0, second = 0;  ///< ids
  double distance = 0, deviation = 0;  ///< mm
  std::int64_t frames = 0;
};

struct BodyShiftRow {
  std::int32_t id = 0;
  bool seen = false;
  double shift = 0, deviation = 0;  ///< mm; NaN where it was not seen
  bool moved = false;
};

/// As `algtrack body pose --csv` has it.
struct BodyPoseRow {
  double time = 0;
  std::int64_t call = 0;
  double x = 0, y = 0, z = 0;             ///< mm, axes as delivered
  double qx = 0, qy = 0, qz = 0, qw = 0;  ///< the body's axes to these
  double sdX = 0, sdY = 0, sdZ = 0;       ///< mm
  double sdRx = 0, sdRy = 0, sdRz = 0;    ///< degrees
  std::int32_t markers = 0, source = 0;   ///< estimate::Source
  double residual = 0, age = 0;           ///< px, s
  double sdDirection = 0;                 ///< degrees; of a pair
};

}  // namespace bindings
