// C++ vectors as numpy arrays, without a copy.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <utility>
#include <vector>

namespace bindings {

/// The array owns the vector and cannot be written: recordings do not change.
template <typename Row>
pybind11::array_t<Row> toArray(std::vector<Row>&& rows) {
  auto* const kept = new std::vector<Row>(std::move(rows));
  pybind11::capsule owner(kept, [](void* p) { delete static_cast<std::vector<Row>*>(p); });
  pybind11::array_t<Row> array(static_cast<pybind11::ssize_t>(kept->size()), kept->data(), owner);
  array.attr("setflags")(pybind11::arg("write") = false);
  return array;
}

/// Lets Ctrl-C end what is long. Called without the interpreter lock.
inline void checkInterrupt() {
  pybind11::gil_scoped_acquire lock;
  if (PyErr_CheckSignals() != 0) throw pybind11::error_already_set();
}

}  // namespace bindings
