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
  StereoBlobs undistorted, onLines;
  std::vector<BlobPair> pairs;
  std::vector<PairPoint> triangulated;
  std::vector<StereoPoint> points;
};

struct Data {
  bench::Workload load;
  TwinRays rays;
  std::vector<FrameData> frames;
};

NoObserver nobody;

constexpr std::uint32_t kProductType = 2;
const std::vector<std::int32_t> kExpectedPoints(6, 1);

/// Runs the frames through the pipeline once, keeping what passes between the stages.
Data collect(bench::Workload load) {
  Data data;
  data.load = std::move(load);
  const StereoCalibration& calibration = data.load.rig.calibration;
  data.rays = raysFrom(calibration);

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

    frame.undistorted = {frame.left, frame.right};
    undistortBoth(calibration, frame.undistorted.left, frame.undistorted.right);
    frame.onLines = stereo.blobs();
    for (const BlobPair& pair : stereo.pairs()) {
      frame.pairs.push_back({&frame.onLines.left[placeOf(*pair.left, stereo.blobs().left)],
                             &frame.onLines.right[placeOf(*pair.right, stereo.blobs().right)]});
    }
    triangulate(data.rays, frame.pairs, frame.triangulated, nobody);
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

void stepUndistort(benchmark::State& state) {
  const Data& data = dataOf(state);
  StereoBlobs blobs;
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    blobs.left.assign(data.frames[n].left.begin(), data.frames[n].left.end());
    blobs.right.assign(data.frames[n].right.begin(), data.frames[n].right.end());
    undistortBoth(data.load.rig.calibration, blobs.left, blobs.right);
  });
}

void stepEpipolarLinesOfOneCamera(benchmark::State& state) {
  const Data& data = dataOf(state);
  std::vector<Blob2DPoint> blobs;
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    const std::vector<Blob2DPoint>& left = data.frames[n].undistorted.left;
    blobs.assign(left.begin(), left.end());
    drawEpipolarLines(data.load.rig.calibration.fundamental, LineDirection::kLeftToRight, blobs);
  });
}

void stepMatch(benchmark::State& state) {
  const Data& data = dataOf(state);
  StereoBlobs blobs;
  NeighbourTable table;
  std::vector<BlobPair> pairs;
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    const StereoBlobs& onLines = data.frames[n].onLines;
    blobs.left.assign(onLines.left.begin(), onLines.left.end());
    blobs.right.assign(onLines.right.begin(), onLines.right.end());
    matchIds(blobs, kExpectedPoints.size(), table, pairs, nobody);
  });
}

void stepTriangulate(benchmark::State& state) {
  const Data& data = dataOf(state);
  std::vector<PairPoint> points;
  forEachFrame(state, data, [&](std::size_t n, std::size_t) {
    triangulate(data.rays, data.frames[n].pairs, points, nobody);
  });
}

void stepFilterPoints(benchmark::State& state) {
  const Data& data = dataOf(state);
  std::vector<PairPoint> points;
  std::vector<PointMean> means(kExpectedPoints.size());
  SurplusScratch scratch;
  forEachFrame(state, data, [&](std::size_t n, std::size_t before) {
    const std::vector<PairPoint>& triangulated = data.frames[n].triangulated;
    points.assign(triangulated.begin(), triangulated.end());
    meansById(data.frames[before].points, means);
    removeTooDeep(4500.0, points, nobody);
    removeJumps(means, points, nobody);
    removeSurplus(kExpectedPoints, true, means, scratch, points, nobody);
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
BENCHMARK(stepUndistort)->Apply(atTwelveAndAllBlobs);
BENCHMARK(stepEpipolarLinesOfOneCamera)->Apply(atTwelveAndAllBlobs);
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
