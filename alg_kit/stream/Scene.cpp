#include <alg_kit/stream/Scene.h>

#include <alg_kit/estimate/PacketBlobs.h>
#include <alg_kit/stream/SceneBodies.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

namespace stream {
namespace {

constexpr std::int64_t kStatisticsNs = 1000000000;
constexpr int kMostBlobIds = 16;  // what a record has room for

void fillObjects(const algorithm::ResultBlock& block, int productType,
                 std::vector<Object>& objects) {
  const bool known = algorithm::isProductType(productType);
  const int count = known ? algorithm::objectCount(productType) : algorithm::ResultBlock::kRecords;
  objects.clear();
  for (int id = 0; id < count; ++id) {
    const algorithm::TrackedPoint& record = block.records[id];
    Object object;
    object.id = id;
    object.seen = record.id != algorithm::kNoObject && std::isfinite(record.x) &&
                  std::isfinite(record.y) && std::isfinite(record.z);
    if (!known && !object.seen) continue;
    const float position[] = {record.x, record.y, record.z};
    if (object.seen) std::copy(std::begin(position), std::end(position), object.position);
    object.bearing = record.bearing;
    std::copy(std::begin(record.hostPosition), std::end(record.hostPosition), object.hostPosition);
    std::copy(std::begin(record.hostOrientation), std::end(record.hostOrientation),
              object.hostOrientation);
    objects.push_back(object);
  }
}

void fillBlobs(const session::Call& call, int productType, Blobs& blobs) {
  blobs.blobs.clear();
  const std::size_t stamp =
      call.type == algorithm::kStampedPacket ? std::size_t{algorithm::kStampSize} : 0;
  const std::size_t size =
      std::min(call.payload.size(), stamp + std::size_t{algorithm::kMaxPacketSize});
  const int ids =
      algorithm::isProductType(productType) ? algorithm::objectCount(productType) : kMostBlobIds;
  estimate::PacketBlobs found;
  blobs.valid =
      size > stamp && estimate::readPacket(call.payload.data() + stamp, size - stamp, ids, found);
  if (!blobs.valid) return;
  for (std::size_t i = 0; i < found.count; ++i) {
    const estimate::Blob& blob = found.blobs[i];
    blobs.blobs.push_back(
        {blob.camera, blob.id, blob.sumX / blob.weight, blob.sumY / blob.weight, blob.weight});
  }
}

}  // namespace

void Context::follow(const session::Entry& entry) noexcept {
  const session::Call& call = entry.call;
  ++calls;
  if (isPacket(call)) ++packets;
  blocks += static_cast<std::int64_t>(entry.blocks.size());
  messages += static_cast<std::int64_t>(entry.logs.size());
  if (!call.parent && call.durationNs) {
    libraryNs += *call.durationNs;
    slowestCallNs = std::max(slowestCallNs, *call.durationNs);
  }
  if (call.kind != session::CallKind::kInit) return;
  productType = call.type;
  ++inits;
  calibrated = call.payload.size() == sizeof calibration;
  if (!calibrated) return;
  std::memcpy(&calibration, call.payload.data(), sizeof calibration);
  // A host may pass any bytes; viewers get numbers.
  const auto within = [](double limit) {
    return [limit](double value) { return std::abs(value) <= limit; };
  };
  const auto& rotation = calibration.rotation;
  const auto& translation = calibration.translation;
  calibrated = std::all_of(std::begin(rotation), std::end(rotation), within(2)) &&
               std::all_of(std::begin(translation), std::end(translation), within(1e9));
}

void Context::follow(const session::Unit& unit) noexcept {
  for (const session::Entry& entry : unit) follow(entry);
}

Scene::Scene(Listener& listener, const SceneOptions& options) : listener_(listener) {
  if (!options.bodies.empty()) bodies_ = std::make_unique<Bodies>(options);
}

Scene::~Scene() = default;

void Scene::take(const session::Unit& unit, const Context& before) {
  Context context = before;
  for (const session::Entry& entry : unit) {
    context.follow(entry);
    const Place place{context.packets - 1, entry.call.index, entry.call.startNs};
    if (bodies_) bodies_->take(entry.call, context, frame_.bodies);
    if (isPacket(entry.call)) {
      blobs_.place = place;
      fillBlobs(entry.call, context.productType, blobs_);
      listener_.onBlobs(blobs_);
    }
    for (const session::LogLine& line : entry.logs) {
      message_.place = place;
      message_.level = line.level;
      message_.text = line.text;
      while (!message_.text.empty() && message_.text.back() == '\n') message_.text.pop_back();
      listener_.onMessage(message_);
    }
    for (const session::DeliveredBlock& delivered : entry.blocks) {
      frame_.place = place;
      frame_.stampUs = delivered.block.header;
      frame_.context = context;
      fillObjects(delivered.block, context.productType, frame_.objects);
      listener_.onFrame(frame_);
    }
    takeStatistics(place, context);
  }
}

void Scene::takeStatistics(const Place& place, const Context& context) {
  // A clock that goes back begins anew. Times are at most 2^62, so their difference fits.
  const std::int64_t passed = place.hostNs - lastNs_;
  if (begun_ && passed >= 0 && passed < kStatisticsNs) return;
  if (begun_ && passed > 0) {
    Statistics statistics;
    statistics.place = place;
    statistics.counts = context;
    statistics.packetsPerSecond =
        static_cast<double>(context.packets - lastPackets_) * 1e9 / static_cast<double>(passed);
    listener_.onStatistics(statistics);
  }
  begun_ = true;
  lastNs_ = place.hostNs;
  lastPackets_ = context.packets;
}

}  // namespace stream
