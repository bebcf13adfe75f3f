#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace recording {

/// Calls by their index, both ends included.
struct CallRange {
  std::int64_t first = 0, last = 0;
};

struct Repair {
  std::int64_t calls = 0;      ///< saved
  std::int64_t lostCalls = 0;  ///< known to have been there
  std::int64_t truthRows = 0;  ///< saved
  std::int64_t lostTruthRows = 0;
  /// Indices without a call in the new file, in order; the first 100 stretches. Among them are the
  /// calls that the recorder itself had dropped.
  std::vector<CallRange> missing;
  std::int64_t droppedCalls = 0;  ///< by the recorder
  std::int64_t fileBytes = 0;     ///< of the damaged file
  std::int64_t wholeBytes = 0;    ///< that it once had, by its own header; 0 = not known
  bool journalMissing = false;    ///< its `-wal` is not beside it: the latest calls went with it
  bool lossKnown = false;  ///< the file says how much it held; else more may be lost than was seen
  bool complete = false;   ///< everything is there, and the recording was closed in order
};

/// Writes all that can be read in a cut or damaged recording, or in one whose writer was killed, to
/// a new recording. What lies in a journal beside the file is part of it. Where rows carry
/// checksums only those are saved whose checksum fits. The new recording is marked complete only if
/// nothing is missing; `meta` says `repaired_from`, and lost calls count as dropped.
/// @param from       the recording, which stays as it is
/// @param to         the new one
/// @param overwrite  whether one that is there is replaced
/// @param progress   called with the number of calls and rows of truth so far; may throw
/// @throws RecordingError if nothing can be read, or `to` cannot be written
Repair repair(const std::string& from, const std::string& to, bool overwrite,
              const std::function<void(std::int64_t)>& progress = {});

}  // namespace recording
