#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <alg_factory/api/Constants.h>
#include <alg_factory/blob2d/Blob2D.h>
#include <alg_factory/filter/ConstantVelocityModel.h>
#include <alg_factory/filter/KalmanFilter.h>
#include <alg_factory/hid/HidProtocol.h>
#include <alg_factory/service/HeadingAnswer.h>
#include <alg_factory/service/Lock.h>
#include <alg_factory/service/PoseAnswer.h>
#include <alg_factory/service/ResultBlock.h>
#include <alg_factory/steady3d/HeadingAlignment.h>
#include <alg_factory/steady3d/Steady3D.h>
#include <alg_factory/stereo3d/Blob3D.h>

namespace algorithm {

class DataSink;
class LogSink;

/// The one object that holds the pipeline: the stages, the vectors between them, the pose filters,
/// the result block and the host's sinks. Created by the first operation that needs it, destroyed
/// when the library is unloaded. The operations are those of `AlgBase`; their contract stands
/// there.
///
/// `resultLock_` guards the result block, the ids and the filters, and is held while a block is
/// delivered. The stages take no lock: one host thread drives them.
///
/// The log sink is used without a null test (kept: hosts set it first).
class StereoService {
 public:
  /// The process-wide service; safe from any thread. Throws std::bad_alloc when it cannot be
  /// created; the next call tries again. Operations hold it by a ServiceCall.
  static StereoService* instance();

  StereoService() = default;
  virtual ~StereoService() = default;
  StereoService(const StereoService&) = delete;
  StereoService& operator=(const StereoService&) = delete;

  bool initialize(int productType, const unsigned char* config, int configOffset);
  bool setLogCallback(LogSink* sink);
  bool setDataCallback(DataSink* sink);
  bool inputStream(int streamType, const unsigned char* buffer, int offset, int length);
  /// As above; `observer` hears what every step drops (a NoObserver hears nothing, at no cost).
  template <typename Observer>
  bool inputStream(int streamType, const unsigned char* buffer, int offset, int length,
                   Observer& observer);
  bool setFilterMode(int parameter, int mode, void* reserved);
  bool handleEvent(int eventType, const void* input, void* output);

  // Read-only views for white-box tests and inspection.
  int productType() const { return productType_; }
  int filterMode() const { return filterMode_; }
  const hid::HidProtocol& protocol() const { return protocol_; }
  const Blob2D& blobLeft() const { return blobLeft_; }
  const Blob2D& blobRight() const { return blobRight_; }
  const Blob3D& stereo() const { return stereo_; }
  const Steady3D& steady() const { return steady_; }
  const ResultBlock& result() const { return result_; }
  const ConstantVelocityModel& model() const { return model_; }
  const std::array<KalmanFilter, 3>& headFilters() const { return headFilters_; }
  const std::array<KalmanFilter, 6>& markerFilters() const { return markerFilters_; }
  const std::array<std::int32_t, 6>& missCounts() const { return missCounts_; }

 private:
  static constexpr std::size_t kHeads = 3;
  static constexpr std::size_t kMarkers = 6;

  bool reportConfigureFailure();
  bool initializeStages(const unsigned char* calibration);
  bool connectStages();

  enum class Input { kRefused, kDone, kPacket };
  Input takeInput(int streamType, const unsigned char* buffer, int offset, int length);
  Input takePacket(const unsigned char* packet, int length, bool stamped);
  void publish(bool stamped);
  void updateMarkerFilters();
  void updateHeadFilters();
  void inputInertial(const unsigned char* record, std::size_t device);

  /// Record 0 uses the second head filter, record 1 the third, record 2 the first (kept: event
  /// queries and stream input have always agreed on it).
  KalmanFilter& headFilterOf(std::size_t record) { return headFilters_[(record + 1) % kHeads]; }

  bool answerMarker(std::size_t record, void* output);
  bool answerHead(std::size_t record, void* output);
  bool answerHeadAtStamp(const void* input, void* output);
  bool answerHeading(const void* input, void* output);
  bool copyPose(void* output) const;
  void fillUnfiltered(std::size_t record);
  void fillFiltered(std::size_t record, const KalmanFilter& filter, double extrapolation);

  hid::HidProtocol protocol_;
  Blob2D blobLeft_, blobRight_;
  Blob3D stereo_;
  Steady3D steady_;

  // The vectors between the stages, which keep pointers to them.
  std::vector<std::uint8_t> streamBytes_;
  std::vector<hid::RawBlob> leftRaw_, rightRaw_;
  std::vector<Blob2DPoint> leftBlobs_, rightBlobs_;
  std::vector<StereoPoint> points_;
  HeadingAlignment tracked_;

  // Answers are assembled here; what an answer does not fill is left over from an earlier one.
  PoseAnswer pose_;
  HeadingAnswer heading_;

  /// The ids of the first records of the latest result block, those of the block before, and the
  /// positions, as one kind of filter follows them. (Answers take positions from the result block,
  /// which may be a later one; these tell a debugger what the filter was fed.)
  template <std::size_t N>
  struct Following {
    std::array<std::int32_t, N> currentIds = filled(-1);
    std::array<std::int32_t, N> previousIds = filled(-1);
    std::array<PointF, N> lastPositions{};

    static std::array<std::int32_t, N> filled(std::int32_t id) {
      std::array<std::int32_t, N> ids;
      ids.fill(id);
      return ids;
    }
  };
  template <std::size_t N, typename FilterOf>
  void follow(Following<N>& following, FilterOf filterOf);

  ConstantVelocityModel model_;
  std::array<KalmanFilter, kHeads> headFilters_;  ///< fed by stream type 2
  Following<kHeads> heads_;
  std::array<KalmanFilter, kMarkers> markerFilters_;  ///< fed by stream type 0
  Following<kMarkers> markers_;
  std::array<std::int32_t, kMarkers> missCounts_{};
  std::int32_t missLimit_ = kBridgedQueries;  ///< of `missCounts_`
  std::int32_t filterMode_ = kFilterOff;
  Lock resultLock_;
  LogSink* logSink_ = nullptr;
  DataSink* dataSink_ = nullptr;
  std::int32_t productType_ = 0;
  ResultBlock result_;
};

template <typename Observer>
bool StereoService::inputStream(int streamType, const unsigned char* buffer, int offset, int length,
                                Observer& observer) {
  const Input input = takeInput(streamType, buffer, offset, length);
  if (input != Input::kPacket) return input == Input::kDone;
  observer.decoded(leftRaw_, rightRaw_);
  blobLeft_.process(0, observer);
  blobRight_.process(1, observer);
  stereo_.process(observer);
  steady_.process(observer);
  publish(streamType == kStampedPacket);
  return true;
}

}  // namespace algorithm
