// Reading a recording that other Python threads may be reading too.
#pragma once

#include <bindings/python/src/RecordingFile.h>
#include <pybind11/pybind11.h>

#include <mutex>

namespace bindings {

/// Reads without the interpreter lock.
template <typename Read>
auto reading(const RecordingFile& file, const Read& read) {
  const pybind11::gil_scoped_release free;
  const std::lock_guard<std::mutex> lock(file.mutex());
  return read(file.reader());
}

}  // namespace bindings
