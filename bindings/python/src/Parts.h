// The parts of the extension module; each adds its names.
#pragma once

#include <pybind11/pybind11.h>

namespace bindings {

void addErrors(pybind11::module_& module);
void addRecords(pybind11::module_& module);
void addHost(pybind11::module_& module);
void addRecording(pybind11::module_& module);
void addAnalysis(pybind11::module_& module);
void addBodies(pybind11::module_& module);
void addCalibration(pybind11::module_& module);
void addSessions(pybind11::module_& module);

/// A record type whose scalars have their fields as attributes too.
pybind11::object recordType(const char* name);

}  // namespace bindings
