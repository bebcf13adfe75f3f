#pragma once

#include <alg_factory/service/PoseAnswer.h>
#include <alg_kit/analysis/Moment.h>
#include <alg_kit/recording/Recording.h>
#include <tools/algtrack/terminal/OutputFile.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace algtrack {

/// What an export's header says about where its numbers come from.
struct ExportOrigin {
  std::string file;            ///< the recording's name
  std::string libraryVersion;  ///< of the library that answered
  std::string clock;           ///< Metadata::clock
  std::optional<int> object;   ///< the only one to write; none = all
};

/// A file of tracked positions that is written while a recording is played. It has its final name
/// only after `commit`.
class TrackExport {
 public:
  virtual ~TrackExport() = default;
  /// @param at  the entry's packet, or for any other call the latest one; -1 = none yet. Its time
  ///            is the entry's own
  virtual void add(const session::Entry& entry, const analysis::Moment& at) = 0;
  virtual void commit() = 0;
  /// The files, for the summary; known after `commit`.
  virtual std::vector<std::string> files() const = 0;
};

/// One row per object and block, and per pose answer. Positions in delivered and camera axes.
std::unique_ptr<TrackExport> makeCsvExport(const std::string& path, bool force,
                                           const ExportOrigin& origin);

/// One JSON object per line: a header, then blocks, answers and messages in order.
std::unique_ptr<TrackExport> makeJsonLinesExport(const std::string& path, bool force,
                                                 const ExportOrigin& origin);

/// PREFIX-object0.tum and so on: lines of t x y z 0 0 0 1 (seconds, metres) of the delivered
/// blocks. Files are made for the objects that were seen.
/// @param cameraAxes  before the mirroring of y and z, else as delivered
std::unique_ptr<TrackExport> makeTumExport(const std::string& prefix, bool force, bool cameraAxes,
                                           const ExportOrigin& origin);

/// The answer of a pose query that found its object.
bool poseOf(const session::Entry& entry, algorithm::PoseAnswer& answer);

/// All files that makeTumExport may write.
std::vector<std::string> tumFiles(const std::string& prefix);

}  // namespace algtrack
