#pragma once

#include <alg_factory/api/AlgBase.h>

#include <string>

namespace algtrack {

/// The algorithm object of a shared library, which is loaded now, its code run, and never unloaded.
/// @throws std::runtime_error in one line: no such file, no library, no factory in it
algorithm::AlgBase* loadAlg(const std::string& file);

}  // namespace algtrack
