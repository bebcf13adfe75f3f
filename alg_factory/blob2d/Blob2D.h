#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <alg_factory/blob2d/Blob2DPoint.h>
#include <alg_factory/hid/BaseCV.h>
#include <alg_factory/hid/RawBlob.h>

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

  /// One group per blob id, with room for a full packet, so that no frame allocates.
  bool prepare() override;

  int blobIdCount() const { return blobIdCount_; }
  int areaDivisor() const { return areaDivisor_; }
  const std::string& name() const { return name_; }
  const std::vector<hid::RawBlob>* input() const { return input_; }
  const std::vector<Blob2DPoint>* output() const { return output_; }
  const std::vector<std::vector<Blob2DPoint>>& groups() const { return groups_; }

 private:
  void takeInput();
  void writeOutput();

  std::vector<hid::RawBlob>* input_ = nullptr;
  std::vector<Blob2DPoint>* output_ = nullptr;
  std::int32_t blobIdCount_ = 0;
  std::int32_t areaDivisor_ = 0;
  std::vector<hid::RawBlob> rawBlobs_;
  std::vector<std::vector<Blob2DPoint>> groups_;  ///< index = blob id
  std::string name_;                              ///< for identification; not read here
  LogSink* logger_ = nullptr;
};

}  // namespace algorithm
