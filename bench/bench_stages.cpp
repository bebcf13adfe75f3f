// Each stage and each step of the 3D stage alone, through the static twin. Every benchmark goes
// through the inputs of all frames of a workload; copying an input into the vector that the stage
// takes it from is part of the time, as it is the stage before that fills it.
#include <bench/Workload.h>

#include <alg_factory/api/LogSink.h>
#include <alg_factory/blob2d/Blob2D.h>
#include <alg_factory/filter/ConstantVelocityModel.h>
#include <alg_factory/filter/KalmanFilter.h>
#include <alg_factory/hid/HidProtocol.h>
#include <alg_factory/hid/IMUProtocol.h>
#include <alg_factory/steady3d/Steady3D.h>
#include <alg_factory/stereo3d/Blob3D.h>
#include <alg_factory/stereo3d/EpipolarLines.h>
#include <alg_factory/stereo3d/EpipolarMatcher.h>
#include <alg_factory/stereo3d/PointFilter.h>
#include <alg_factory/stereo3d/PointSmoother.h>
#include <alg_factory/stereo3d/Triangulation.h>
#include <alg_factory/stereo3d/Undistortion.h>

#include <benchmark/benchmark.h>

#include <Eigen/LU>

#include <map>

namespace {

using namespace algorithm;

struct Silent : LogSink {
  bool Log(int, const char*) override { return true; }
};

/// What passes between the stages, frame by frame.
struct FrameData {
  std::vector<hid::RawBlob> leftRaw, rightRaw;
  std::vector<Blob2DPoint> left, right;
  std::vector<ImagePoint> leftRawPoints, leftUndistorted, rightUndistorted;
  std::vector<ImageLine> leftLines;
  std::vector<std::vector<Blob2DPoint>> leftById, rightById;
  std::vector<BlobPairs> pairs;
  std::vector<StereoPoint> triangulated, points;
};

struct Data {
  bench::Workload load;
  StereoRays rays;
  std::vector<FrameData> frames;
};

constexpr std::uint32_t kProductType = 2;
const std::vector<std::int32_t> kExpectedPoints(6, 1);

StereoRays raysOf(const StereoCalibration& calibration) {
  StereoRays rays;
  rays.leftRayInRight =
      rig::matrixFrom(calibration.rotation) * rig::matrixFrom(calibration.leftIntrinsics).inverse();
  rays.rightRay = rig::matrixFrom(calibration.rightIntrinsics).inverse();
  rays.leftCentreInRight = Eigen::Map<const Eigen::Vector3d>(calibration.translation);
  return rays;
}

/// Runs the frames through the pipeline once, keeping what passes between the stages.
Data collect(bench::Workload load) {
  Data data;
  data.load = std::move(load);
  const StereoCalibration& calibration = data.load.rig.calibration;
  data.rays = raysOf(calibration);

  Silent log;
  std::vector<std::uint8_t> bytes;
  std::vector<hid::RawBlob> leftRaw, rightRaw;
  std::vector<Blob2DPoint> left, right;
  std::vector<StereoPoint> points;
  hid::HidProtocol protocol;
  protocol.setLogger(&log);
  protocol.init(kProductType);
  protocol.configure(&bytes, &leftRaw, &rightRaw);
  Blob2D blobLeft, blobRight;
  blobLeft.init(kProductType);
  blobRight.init(kProductType);
  blobLeft.configure(&leftRaw, &left, "left");
  blobRight.configure(&rightRaw, &right, "right");
  Blob3D stereo;
  stereo.init(kProductType, &calibration);
  stereo.configure(&left, &right, &points);

  for (const sim::Bytes& payload : data.load.payloads) {
    FrameData frame;
    bytes = payload;
    protocol.process();
    frame.leftRaw = leftRaw;
    frame.rightRaw = rightRaw;
    blobLeft.process();
    blobRight.process();
    frame.left = left;
    frame.right = right;
    stereo.process();
    frame.points = points;

    for (const Blob2DPoint& blob : frame.left) frame.leftRawPoints.push_back({blob.x, blob.y});
    std::vector<ImagePoint> rightRawPoints;
    for (const Blob2DPoint& blob : frame.right) rightRawPoints.push_back({blob.x, blob.y});
    undistort(calibration.leftIntrinsics, calibration.leftDistortion, frame.leftRawPoints,
              frame.leftUndistorted);
    undistort(calibration.rightIntrinsics, calibration.rightDistortion, rightRawPoints,
              frame.rightUndistorted);
    std::vector<ImageLine> rightLines;
    epipolarLines(calibration.fundamental, LineDirection::kLeftToRight, frame.leftUndistorted,
                  frame.leftLines);
    epipolarLines(calibration.fundamental, LineDirection::kRightToLeft, frame.rightUndistorted,
                  rightLines);
    frame.leftById.resize(kExpectedPoints.size());
    frame.rightById.resize(kExpectedPoints.size());
    frame.pairs.resize(kExpectedPoints.size());
    std::vector<Blob2DPoint> leftBlobs = frame.left, rightBlobs = frame.right;
    sortById(leftBlobs, frame.leftUndistorted, frame.leftLines, frame.leftById);
    sortById(rightBlobs, frame.rightUndistorted, rightLines, frame.rightById);
    MatchScratch scratch;
    for (std::size_t g = 0; g < frame.pairs.size(); ++g) {
      auto l = frame.leftById[g], r = frame.rightById[g];
      matchId(l, r, scratch, frame.pairs[g]);
      triangulate(data.rays, frame.pairs[g], static_cast<int>(g), frame.triangulated);
    }
    data.frames.push_back(std::move(frame));
  }
  return data;
}

const Data& dataOf(const benchmark::State& state) {
  static std::map<int, Data> all;
  const int records = static_cast<int>(state.range(0));
  const auto found = all.find(records);
  return found != all.end()
             ? found->second
             : all.emplace(records, collect(bench::spreadBlobs(records))).first->second;
}

/// Runs `step` on frame after frame; the frame before is passed too.
template <typename Step>
void forEachFrame(benchmark::State& state, const Data& data, Step step) {
  const std::size_t count = data.frames.size();
  std::size_t n = 0;
  for (auto _ : state) {
    const std::size_t before = n == 0 ? count - 1 : n - 1;
    step(n, before);
    benchmark::ClobberMemory();
    if (++n == count) n = 0;
  }
}

void stageHidProtocol(benchmark::State& state) {
  const Data& data = dataOf(state);
  Silent log;
  std::vector<std::uint8_t> bytes;
  std::vector<hid::RawBlob> left, right;
  hid::HidProtocol protocol;
  protocol.setLogger(&log);
  protocol.init(kProductType);
  protocol.configure(&bytes, &left, &right);
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    left.clear();
    right.clear();
    bytes.assign(data.load.payloads[n].begin(), data.load.payloads[n].end());
    protocol.process();
  });
}

void stageBlob2DOfOneCamera(benchmark::State& state) {
  const Data& data = dataOf(state);
  std::vector<hid::RawBlob> input;
  std::vector<Blob2DPoint> output;
  Blob2D stage;
  stage.init(kProductType);
  stage.configure(&input, &output, "left");
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    input.assign(data.frames[n].leftRaw.begin(), data.frames[n].leftRaw.end());
    stage.process();
  });
}

void stageBlob3D(benchmark::State& state) {
  const Data& data = dataOf(state);
  std::vector<Blob2DPoint> left, right;
  std::vector<StereoPoint> points;
  Blob3D stage;
  stage.init(kProductType, &data.load.rig.calibration);
  stage.configure(&left, &right, &points);
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    left.assign(data.frames[n].left.begin(), data.frames[n].left.end());
    right.assign(data.frames[n].right.begin(), data.frames[n].right.end());
    stage.process();
  });
  if (points.size() != kExpectedPoints.size()) state.SkipWithError("points are missing");
}

void stageSteady3D(benchmark::State& state) {
  const Data& data = dataOf(state);
  std::vector<StereoPoint> points;
  HeadingAlignment heading;
  Steady3D stage;
  stage.init(kProductType);
  stage.configure(&points, &heading);
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    points.assign(data.frames[n].points.begin(), data.frames[n].points.end());
    stage.process();
  });
}

void stepUndistortOneCamera(benchmark::State& state) {
  const Data& data = dataOf(state);
  const StereoCalibration& c = data.load.rig.calibration;
  std::vector<ImagePoint> undistorted;
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    undistort(c.leftIntrinsics, c.leftDistortion, data.frames[n].leftRawPoints, undistorted);
  });
}

void stepEpipolarLinesOfOneCamera(benchmark::State& state) {
  const Data& data = dataOf(state);
  std::vector<ImageLine> lines;
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    epipolarLines(data.load.rig.calibration.fundamental, LineDirection::kLeftToRight,
                  data.frames[n].leftUndistorted, lines);
  });
}

void stepSortByIdOfOneCamera(benchmark::State& state) {
  const Data& data = dataOf(state);
  std::vector<Blob2DPoint> blobs;
  std::vector<std::vector<Blob2DPoint>> byId(kExpectedPoints.size());
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    const FrameData& frame = data.frames[n];
    for (auto& list : byId) list.clear();
    blobs.assign(frame.left.begin(), frame.left.end());
    sortById(blobs, frame.leftUndistorted, frame.leftLines, byId);
  });
}

void stepMatch(benchmark::State& state) {
  const Data& data = dataOf(state);
  std::vector<Blob2DPoint> left, right;
  MatchScratch scratch;
  BlobPairs pairs;
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    const FrameData& frame = data.frames[n];
    for (std::size_t g = 0; g < frame.leftById.size(); ++g) {
      left.assign(frame.leftById[g].begin(), frame.leftById[g].end());
      right.assign(frame.rightById[g].begin(), frame.rightById[g].end());
      matchId(left, right, scratch, pairs);
    }
  });
}

void stepTriangulate(benchmark::State& state) {
  const Data& data = dataOf(state);
  std::vector<StereoPoint> points;
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    points.clear();
    for (std::size_t g = 0; g < data.frames[n].pairs.size(); ++g) {
      triangulate(data.rays, data.frames[n].pairs[g], static_cast<int>(g), points);
    }
  });
}

void stepFilterPoints(benchmark::State& state) {
  const Data& data = dataOf(state);
  std::vector<StereoPoint> points;
  SurplusScratch scratch;
  forEachFrame(state, data, [&](std::size_t n, std::size_t before) {
    const std::vector<StereoPoint>& previous = data.frames[before].points;
    points.assign(data.frames[n].triangulated.begin(), data.frames[n].triangulated.end());
    removeTooDeep(4500.0, points);
    removeJumps(previous, points);
    removeSurplus(kExpectedPoints, previous, scratch, points);
  });
}

void stepSmooth(benchmark::State& state) {
  const Data& data = dataOf(state);
  std::vector<StereoPoint> points;
  std::vector<PointHistory> history(kExpectedPoints.size());
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    points.assign(data.frames[n].points.begin(), data.frames[n].points.end());
    smoothPoints(3.0, history, points);
  });
}

void atTwelveAndAllBlobs(benchmark::internal::Benchmark* b) {
  b->ArgName("blobs")->Arg(12)->Arg(static_cast<int>(sim::kMaxPacketRecords));
}
BENCHMARK(stageHidProtocol)->Apply(atTwelveAndAllBlobs);
BENCHMARK(stageBlob2DOfOneCamera)->Apply(atTwelveAndAllBlobs);
BENCHMARK(stageBlob3D)->Apply(atTwelveAndAllBlobs);
BENCHMARK(stageSteady3D)->Apply(atTwelveAndAllBlobs);
BENCHMARK(stepUndistortOneCamera)->Apply(atTwelveAndAllBlobs);
BENCHMARK(stepEpipolarLinesOfOneCamera)->Apply(atTwelveAndAllBlobs);
BENCHMARK(stepSortByIdOfOneCamera)->Apply(atTwelveAndAllBlobs);
BENCHMARK(stepMatch)->Apply(atTwelveAndAllBlobs);
BENCHMARK(stepTriangulate)->Apply(atTwelveAndAllBlobs);
BENCHMARK(stepFilterPoints)->Apply(atTwelveAndAllBlobs);
BENCHMARK(stepSmooth)->Apply(atTwelveAndAllBlobs);

/// Measurements that a filter meets: the positions of object 0.
std::vector<Eigen::Vector3d> measurements() {
  const sim::Scene scene = sim::Scene::moving(2);
  std::vector<Eigen::Vector3d> result;
  for (int n = 0; n < 256; ++n) result.push_back(scene.at(n / 90.0).objects[0].position);
  return result;
}

void updateFilter(benchmark::State& state, KalmanFilter filter) {
  const std::vector<Eigen::Vector3d> positions = measurements();
  filter.init(0.0, positions[0]);
  std::size_t n = 0;
  for (auto _ : state) {
    filter.update(positions[n]);
    benchmark::DoNotOptimize(filter);
    if (++n == positions.size()) n = 0;
  }
}

void kalmanUpdateOfTheSystemsModel(benchmark::State& state) {
  updateFilter(state, ConstantVelocityModel::build(0).makeFilter());
}
BENCHMARK(kalmanUpdateOfTheSystemsModel);

void kalmanUpdateOfAnotherModel(benchmark::State& state) {
  ConstantVelocityModel model = ConstantVelocityModel::build(0);
  model.processNoise(0, 1) = model.processNoise(1, 0) = 1e-7;  // the axes depend on each other
  updateFilter(state, model.makeFilter());
}
BENCHMARK(kalmanUpdateOfAnotherModel);

void headingAddPair(benchmark::State& state) {
  const std::vector<Eigen::Vector3d> positions = measurements();
  HeadingAlignment heading;
  std::size_t n = 0;
  for (auto _ : state) {
    const Eigen::Vector3f p = positions[n].cast<float>();
    heading.addPair({0, p.x() - 34, p.y(), p.z()}, {0, p.x() + 34, p.y(), p.z() + 1});
    benchmark::DoNotOptimize(heading);
    if (++n == positions.size()) n = 0;
  }
}
BENCHMARK(headingAddPair);

void imuDecodeSample(benchmark::State& state) {
  std::vector<std::vector<std::uint8_t>> records(256);
  sim::Random random(1);
  for (auto& record : records) {
    for (int i = 0; i < hid::IMUProtocol::kRecordSize; ++i)
      record.push_back(static_cast<std::uint8_t>(random.bits()));
    // Quaternion of ordinary size: the exponents of the four floats.
    for (const std::size_t top : {7u, 11u, 15u, 19u}) {
      record[top] = 0x3F;
      record[top - 1] &= 0x7F;
    }
  }
  const hid::IMUProtocol protocol;
  hid::ImuSample sample;
  std::size_t n = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(protocol.decodeSample(records[n].data(), sample));
    if (++n == records.size()) n = 0;
  }
}
BENCHMARK(imuDecodeSample);

}  // namespace

BENCHMARK_MAIN();
