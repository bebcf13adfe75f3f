#pragma once

#include <alg_kit/recording/Recording.h>

#include <utility>

namespace recording {

/// Reads a recording in units: an outermost call with the calls nested in it.
class UnitCursor {
 public:
  explicit UnitCursor(EntryCursor entries) : entries_(std::move(entries)) {}

  /// Fills `unit`, outermost call first; false after the last one.
  bool next(session::Unit& unit);

 private:
  EntryCursor entries_;
  session::Unit ahead_;  ///< begins with the call after the unit
  bool begun_ = false, hasAhead_ = false;
};

}  // namespace recording
