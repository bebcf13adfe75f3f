#pragma once

#include <cstdint>
#include <string>

namespace recording {

struct Repair {
  std::int64_t calls = 0;      ///< saved
  std::int64_t lostCalls = 0;  ///< known to have been there
  std::int64_t truthRows = 0;  ///< saved
  std::int64_t lostTruthRows = 0;
  bool lossKnown = false;  ///< the file says how much it held; else more may be lost than was seen
  bool complete = false;   ///< everything is there, and the recording was closed in order
};

/// Writes all that can be read in a cut or damaged recording, or in one whose writer was killed, to
/// a new recording. What lies in a journal beside the file is part of it. Where rows carry
/// checksums only those are saved whose checksum fits. The new recording is marked complete only if
/// nothing is missing; `meta` says `repaired_from`, and lost calls count as dropped.
/// @throws RecordingError if nothing can be read, or `to` cannot be written
Repair repair(const std::string& from, const std::string& to, bool overwrite);

}  // namespace recording
