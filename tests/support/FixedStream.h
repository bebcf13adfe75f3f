// A host's session as a file: every call across the interface and everything that came back. The
// same calls must give the same bytes after a change of the library's insides and on another
// platform.
#pragma once

#include <alg_factory/api/AlgBase.h>
#include <alg_kit/session/Session.h>

#include <string>
#include <vector>

namespace testing_support {

/// The units of a file in the session's byte form.
/// @throws std::runtime_error with the file's name
std::vector<session::Unit> readUnits(const std::string& path);
void writeUnits(const std::string& path, const std::vector<session::Unit>& units);

/// Plays units; what came back has no durations. The pipeline behind `alg` keeps its sinks: every
/// call of a process has the same `alg`.
std::vector<session::Unit> played(algorithm::AlgBase& alg, const std::vector<session::Unit>& units);

}  // namespace testing_support
