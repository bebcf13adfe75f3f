#pragma once

#include <alg_factory/api/AlgBase.h>
#include <alg_kit/analysis/ReportStatistics.h>
#include <alg_kit/recording/Recording.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace analysis {

/// What became of one object. The rows have one entry per packet; positions are as delivered, in mm
/// (the unit of the calibration's translation).
struct ObjectTrack {
  int object = 0;
  std::vector<Presence> presence;
  std::vector<Place> raw;       ///< of the delivered blocks
  std::vector<Place> filtered;  ///< of the last answer before the next packet
  std::vector<Place> truth;
  std::vector<float> rawError, filteredError;  ///< distance from the truth; NaN = unknown
  std::vector<float> epipolar;  ///< px; of the pairs behind the position, the largest; NaN = none
  std::vector<float> rayGap;    ///< mm; likewise

  std::int64_t answers = 0;          ///< pose answers with the object
  std::int64_t answersFiltered = 0;  ///< ... that differ from the delivered position
  std::int64_t answersBridged = 0;   ///< ... while the latest block is without the object
  std::int64_t held = 0;             ///< packets in which a jump or ratio test kept the old place
  std::int64_t notFinite = 0;        ///< delivered positions that are no numbers
  std::int64_t visible = 0;          ///< packets with a marker that both cameras reported (truth)
  std::int64_t visibleSeen = 0;      ///< ... and with the object in the block
};

struct ReportMessage {
  int level = 0;
  std::string text;
  std::int64_t count = 0;
  std::int64_t firstCall = 0;
};

/// Everything about a recording that the report shows. A packet is an InputStream call of stream
/// type 0 or 2.
struct ReportData {
  std::string file;
  recording::Metadata metadata;
  std::vector<recording::Configuration> configurations;
  std::int64_t calls = 0;
  std::int64_t blocks = 0;
  double seconds = 0;  ///< from the first call to the last

  std::vector<double> times;  ///< per packet, seconds since the first call, ascending
  std::vector<ObjectTrack> objects;

  bool hasTruth = false;
  std::int64_t framesLost = 0;  ///< frames of the truth whose packet never came

  std::vector<double> packetTimes;  ///< per packet, microseconds in the call; NaN = not measured
  bool measuredAnew = false;  ///< the recording holds none: measured in a replay, here and now

  std::vector<ReportMessage> messages;

  std::int64_t timesBackwards = 0;   ///< packets whose recorded time is before the packet's before
  std::int64_t blocksDiffering = 0;  ///< recorded blocks that the replay delivers otherwise
};

/// Told while something long goes on: what is being done, how much of it is done, and of how much.
using Progress = std::function<void(const char* step, std::int64_t done, std::int64_t total)>;

/// Reads the recording and runs it through the library's stages once, and once more through its
/// interface where the time of the packets was not recorded.
/// @param library   for that replay; must not have been used before
/// @param progress  may be empty
/// @throws recording::RecordingError; std::runtime_error, in one line, if there is no packet in it
ReportData gatherReport(const recording::RecordingReader& reader, algorithm::AlgBase& library,
                        const Progress& progress = {});

}  // namespace analysis
