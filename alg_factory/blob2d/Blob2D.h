#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/blob2d/BlobMerger.h>
#include <alg_factory/blob2d/BlobMoments.h>
#include <alg_factory/blob2d/IdRuns.h>
#include <alg_factory/hid/BaseCV.h>
#include <alg_factory/hid/RawBlob.h>
#include <alg_factory/hid/StageObserver.h>

namespace algorithm {

class LogSink;

/// Second stage, one instance per camera: raw blob moments in, merged 2D blobs out, by id.
class Blob2D : public BaseCV {
 public:
  /// Sets the product type's number of ids and area divisor. An unknown type is logged (level 4),
  /// changes nothing and is no failure: streams of such types are refused elsewhere.
  bool init(std::uint32_t productType);

  /// Stores the name, runs `prepare`, and binds the vectors (not owned) only if that succeeded.
  bool configure(std::vector<hid::RawBlob>* input, std::vector<Blob2DPoint>* output,
                 std::string name);

  /// `logger` (not owned) must be set before an `init` that meets an unknown type.
  bool setLogger(LogSink* logger);

  /// Takes the bound input by exchanging storage, leaves it empty, and replaces the bound output:
  /// ids ascending, within an id the largest first. Does nothing while no output is bound. Always
  /// true.
  bool process() override;

  /// As `process`, and tells `observer` what becomes of every blob. Blobs are named by their place
  /// in the input.
  /// `camera` is the one of the stage, as the observer knows it.
  template <typename Observer>
  bool process(int camera, Observer& observer);

  /// One group per blob id, with room for a full packet, so that no frame allocates.
  bool prepare() override;

  int blobIdCount() const { return blobIdCount_; }
  int areaDivisor() const { return areaDivisor_; }
  const std::string& name() const { return name_; }
  const std::vector<hid::RawBlob>* input() const { return input_; }
  const std::vector<Blob2DPoint>* output() const { return output_; }
  std::size_t groups() const { return groups_; }

 private:
  void takeInput();
  void orderBlobs();

  std::vector<hid::RawBlob>* input_ = nullptr;
  std::vector<Blob2DPoint>* output_ = nullptr;
  std::int32_t blobIdCount_ = 0;
  std::int32_t areaDivisor_ = 0;
  std::vector<hid::RawBlob> rawBlobs_;
  std::size_t groups_ = 0;            ///< ids that `prepare` met
  std::vector<std::uint32_t> order_;  ///< of `rawBlobs_`: places of those that go on, id by id
  std::string name_;                  ///< for identification; not read here
  LogSink* logger_ = nullptr;
};

template <typename Observer>
bool Blob2D::process(int camera, Observer& observer) {
  if (output_ == nullptr) return true;
  takeInput();
  for (std::size_t i = 0; i < rawBlobs_.size(); ++i) {
    if (rawBlobs_[i].weight == 0) observer.blobDropped(camera, i, BlobFate::kNoWeight);
  }
  orderBlobs();
  measureBlobs(rawBlobs_, order_, areaDivisor_, *output_);
  Blob2DPoint* const blobs = output_->data();
  const Blob2DPoint* const end = blobs + output_->size();
  Blob2DPoint* kept = blobs;
  for (Blob2DPoint* next = blobs; next != end;) {
    BlobRun run = runOfId(next, end, next->id);
    next = run.last;
    std::uint32_t* const names = order_.data() + (run.first - blobs);
    run.last = mergeOverlapping(run, names, camera, observer);
    for (const Blob2DPoint* blob = run.first; blob != run.last; ++blob) {
      observer.blobKept(camera, names[blob - run.first], *blob);
    }
    kept = kept == run.first ? run.last : std::copy(run.first, run.last, kept);
  }
  output_->resize(static_cast<std::size_t>(kept - blobs));
  return true;
}

}  // namespace algorithm
