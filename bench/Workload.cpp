#include <bench/Workload.h>

#include <stdexcept>

namespace bench {

namespace {

constexpr int kFrames = 257;
// Far enough apart that blobs of one id are never merged, whichever way the object turns.
constexpr double kSpacingOfFew = 60;   // mm
constexpr double kSpacingOfMany = 45;  // mm

Workload record(std::string name, sim::Scene scene, sim::Framing framing, int records,
                double pixelNoise) {
  Workload load;
  load.name = std::move(name);
  load.productType = scene.productType();
  load.streamType = static_cast<int>(framing);
  load.records = records;
  load.rig = rig::builtInRig();

  sim::SimulatorOptions options;
  options.framing = framing;
  options.blobs.pixelNoise = pixelNoise;
  const sim::Simulator simulator(load.rig, std::move(scene), options);
  for (int n = 0; n < kFrames; ++n) {
    sim::Frame frame = simulator.frame(n);
    if (frame.blobs.size() != static_cast<std::size_t>(records)) {
      throw std::runtime_error(load.name + ": frame " + std::to_string(n) + ": expected " +
                               std::to_string(records) + " blobs, found " +
                               std::to_string(frame.blobs.size()));
    }
    load.payloads.push_back(std::move(frame.payload));
  }
  for (int n = kFrames - 2; n > 0; --n)
    load.payloads.push_back(load.payloads[static_cast<std::size_t>(n)]);
  return load;
}

/// The n-th marker of a flat grid of an object.
Eigen::Vector3d onGrid(int n, int columns, double spacing) {
  return spacing * Eigen::Vector3d(n % columns, n / columns, 0);
}

std::vector<sim::SceneObject> objectsWithoutMarkers() {
  std::vector<sim::SceneObject> objects = sim::Scene::moving(2).objects();
  for (sim::SceneObject& object : objects) object.markers.clear();
  return objects;
}

std::string countOf(int records) {
  return std::to_string(records) + " blobs";
}

}  // namespace

Workload movingScene(int productType, sim::Framing framing, double pixelNoise) {
  constexpr int kRecords[] = {6, 8, 12};
  return record("product type " + std::to_string(productType) + ", stream type " +
                    std::to_string(static_cast<int>(framing)),
                sim::Scene::moving(productType), framing, kRecords[productType], pixelNoise);
}

Workload spreadBlobs(int records, double pixelNoise) {
  std::vector<sim::SceneObject> objects = objectsWithoutMarkers();
  const int ids = static_cast<int>(objects.size());
  for (int marker = 0; marker < records / 2; ++marker) {
    objects[static_cast<std::size_t>(marker % ids)].markers.push_back(
        onGrid(marker / ids, 2, kSpacingOfFew));
  }
  return record(countOf(records) + " over six ids", sim::Scene(2, std::move(objects)),
                sim::Framing::kPlain, records, pixelNoise);
}

Workload blobsOfOneId(int records) {
  std::vector<sim::SceneObject> objects = objectsWithoutMarkers();
  for (int marker = 0; marker < records / 2; ++marker) {
    objects[0].markers.push_back(onGrid(marker, 5, kSpacingOfMany));
  }
  return record(countOf(records) + " of one id", sim::Scene(2, std::move(objects)),
                sim::Framing::kPlain, records, kPixelNoise);
}

}  // namespace bench
