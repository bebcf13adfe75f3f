#include <bench/peers/Peer.h>

#include <bench/peers/PositionFilters.h>
#include <bench/peers/Stereo.h>

#include <alg_factory/service/ResultBlock.h>

namespace peers {

namespace {

template <typename PositionFilter>
class Tracker : public Peer {
 public:
  Tracker(const algorithm::StereoCalibration& calibration, algorithm::DataSink& data,
          algorithm::LogSink& log)
      : stereo_(calibration), data_(data), log_(log) {}

  void inputPacket(const std::uint8_t* packet, std::size_t length) override {
    if (length == 0) return;
    const std::vector<Point> points = stereo_.process(decodeBlobs(packet, length, log_));

    for (algorithm::TrackedPoint& record : block_.records) record.id = -1;
    for (const Point& point : points) {
      algorithm::TrackedPoint& record = block_.records[point.id];
      record.id = point.id;
      record.x = static_cast<float>(point.position[0]);
      record.y = -static_cast<float>(point.position[1]);
      record.z = -static_cast<float>(point.position[2]);
    }
    for (int id = 0; id < kIds; ++id) follow(id, block_.records[id]);
    data_.Deliver(&block_, 0, sizeof block_);
  }

  bool filteredPosition(int object, double (&position)[3]) const override {
    const Followed& followed = followed_[object];
    if (!followed.everSeen) return false;
    for (int i = 0; i < 3; ++i) position[i] = followed.filter.position()[i];
    return true;
  }

 private:
  struct Followed {
    PositionFilter filter;
    bool seen = false;  ///< in the latest packet
    bool everSeen = false;
  };

  void follow(int id, const algorithm::TrackedPoint& record) {
    Followed& followed = followed_[id];
    if (record.id != -1) {
      const cv::Vec3d position(record.x, record.y, record.z);
      if (!followed.seen) followed.filter.start(position);
      followed.filter.update(position);
      followed.everSeen = true;
    }
    followed.seen = record.id != -1;
  }

  Stereo stereo_;
  Followed followed_[kIds];
  algorithm::ResultBlock block_;
  algorithm::DataSink& data_;
  algorithm::LogSink& log_;
};

}  // namespace

std::unique_ptr<Peer> makeOpenCvPeer(const algorithm::StereoCalibration& calibration,
                                     algorithm::DataSink& data, algorithm::LogSink& log) {
  cv::setNumThreads(1);
  return std::make_unique<Tracker<CvPositionFilter>>(calibration, data, log);
}

std::unique_ptr<Peer> makeEigenFilterPeer(const algorithm::StereoCalibration& calibration,
                                          algorithm::DataSink& data, algorithm::LogSink& log) {
  cv::setNumThreads(1);
  return std::make_unique<Tracker<EigenPositionFilter>>(calibration, data, log);
}

}  // namespace peers
