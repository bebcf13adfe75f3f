// What a session says to other programs: the one place where units become named objects with units
// and frames. Every writer (WebSocket, OSC, OpenIGTLink, MCAP) takes it from here.
// docs/streams.md describes the messages.
#pragma once

#include <alg_factory/api/Constants.h>
#include <alg_factory/service/ResultBlock.h>
#include <alg_factory/stereo3d/StereoCalibration.h>
#include <alg_kit/session/Session.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace stream {

constexpr int kVersion = 1;  ///< of the messages; a new name in a message is no new version

// Frames of reference. Axes and origin: docs/frames-and-units.md.
constexpr const char* kDeliveredFrame = "delivered";  ///< of every position
constexpr const char* kRightCamera = "right_camera";  ///< y and z mirrored
constexpr const char* kLeftCamera = "left_camera";    ///< known after Init

/// The unit of the calibration's translation, which is that of every position.
struct LengthUnit {
  std::string name = "mm";
  double metres = 0.001;
};

/// What a stream is told beside the units.
struct SceneOptions {
  LengthUnit unit;  ///< of the calibration's translation
  /// Files of bodies (docs/bodies.md), whose poses go out with every block. Their names differ; the
  /// unit is mm then.
  std::vector<std::string> bodies;
  double frameRate = 90;  ///< Hz, of packets without a stamp; bodies alone need it
};

/// What was before a unit: counts since the listening began, and what the latest Init said.
struct Context {
  std::int64_t calls = 0;
  std::int64_t packets = 0;        ///< device packets: InputStream of type 0 or 2
  std::int64_t blocks = 0;         ///< delivered
  std::int64_t messages = 0;       ///< of the library
  std::int64_t dropped = 0;        ///< calls that the listener missed
  std::int64_t libraryNs = 0;      ///< spent in outermost calls, the host's callbacks included
  std::int64_t slowestCallNs = 0;  ///< the longest outermost call
  int productType = -1;            ///< -1 = not known
  std::int64_t inits = 0;
  bool calibrated = false;  ///< what follows is known; rotation and translation are such
  algorithm::StereoCalibration calibration{};

  /// Goes on behind a call. Allocates nothing.
  void follow(const session::Entry& entry) noexcept;
  void follow(const session::Unit& unit) noexcept;
};

/// Where and when. Every message carries it.
struct Place {
  std::int64_t frame = -1;  ///< the latest device packet, counted from 0; -1 = none yet
  std::int64_t call = 0;    ///< Call::index
  std::int64_t hostNs = 0;  ///< Call::startNs: the host's monotonic clock, or the simulated one
};

struct Object {
  int id = 0;
  bool seen = false;              ///< the record holds it, and its position is finite
  double position[3] = {};        ///< delivered axes, in the LengthUnit; only where `seen`
  double bearing = 0;             ///< degrees; object 2 of product type 1
  float hostPosition[3] = {};     ///< objects 0 and 1: as the host sent it
  float hostOrientation[4] = {};  ///< the same
};

/// A body of SceneOptions after a packet, by what was seen of it up to then.
struct BodyPlace {
  std::string name;
  bool known = false;                ///< the rest holds
  bool seen = false;                 ///< in this packet; else it is moved on from earlier ones
  double age = 0;                    ///< seconds since a marker was seen
  int markers = 0;                   ///< used of this packet's
  double residual = 0;               ///< px, root mean square of the used ones
  double position[3] = {};           ///< of the body's origin, delivered axes, mm
  double orientation[4] = {};        ///< quaternion x, y, z, w: turns the body's axes into these
  double positionDeviation[3] = {};  ///< standard deviations, mm
  double rotationDeviation[3] = {};  ///< about these axes, radians; infinite where not known
  /// Of the two-point object: of its line's direction, radians per axis across it; else 0. How far
  /// it is turned about that line is not known.
  double directionDeviation = 0;
};

/// A delivered block.
struct Frame {
  Place place;
  std::uint64_t stampUs = 0;    ///< of the device; 0 = none
  std::vector<Object> objects;  ///< of the product type; those that were seen where it is not known
  std::vector<BodyPlace> bodies;  ///< in the order of SceneOptions
  Context context;
};

struct SentBlob {
  int camera = 0;  ///< 0 left, 1 right
  int id = 0;
  double x = 0, y = 0;  ///< px of the raw image, x right, y down
  double weight = 0;    ///< 110 per pixel of area
};

/// The blobs of a device packet.
struct Blobs {
  Place place;
  bool valid = false;  ///< start word and check byte are right; else there are no blobs
  std::vector<SentBlob> blobs;
};

struct Message {
  Place place;
  int level = 0;     ///< algorithm::LogLevel
  std::string text;  ///< without the newline at its end; any bytes
};

/// Once a second of host time.
struct Statistics {
  Place place;
  Context counts;
  double packetsPerSecond = 0;  ///< since the last statistics
};

class Listener {
 public:
  virtual ~Listener() = default;
  virtual void onFrame(const Frame& frame) = 0;
  virtual void onBlobs(const Blobs& blobs) = 0;
  virtual void onMessage(const Message& message) = 0;
  virtual void onStatistics(const Statistics& statistics) = 0;
};

/// Tells a listener what units hold, in the order of what happened.
class Scene {
 public:
  /// @param listener  not owned
  /// @throws std::runtime_error in one line, for bodies that cannot be followed
  explicit Scene(Listener& listener, const SceneOptions& options = {});
  ~Scene();

  /// @param before  of the unit
  void take(const session::Unit& unit, const Context& before);

 private:
  class Bodies;
  void takeStatistics(const Place& place, const Context& context);

  Listener& listener_;
  std::unique_ptr<Bodies> bodies_;  ///< null = there are none
  Frame frame_;                     ///< storage, as the next two
  Blobs blobs_;
  Message message_;
  bool begun_ = false;
  std::int64_t lastNs_ = 0;       ///< of the latest statistics
  std::int64_t lastPackets_ = 0;  ///< then
};

}  // namespace stream
