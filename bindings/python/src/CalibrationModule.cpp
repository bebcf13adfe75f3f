// Calibrations: files in and out, and what is wrong with one.
#include <alg_kit/calibration/CalibrationCheck.h>
#include <alg_kit/calibration/CalibrationFile.h>
#include <alg_kit/calibration/CalibrationHealth.h>
#include <alg_kit/calibration/CalibrationJson.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/calibration/CalibrationWriter.h>
#include <alg_kit/calibration/RecordedPairs.h>
#include <alg_kit/rig/StereoRig.h>
#include <bindings/python/src/Parts.h>
#include <bindings/python/src/RecordingFile.h>
#include <pybind11/stl.h>

#include <mutex>

namespace py = pybind11;

namespace bindings {
namespace {

using calibration::LoadedCalibration;

LoadedCalibration fromBytes(const std::string& bytes, const std::string& unit, int width,
                            int height) {
  LoadedCalibration loaded = calibration::readRecord(bytes, "calibration");
  loaded.unit = unit;
  loaded.width = width;
  loaded.height = height;
  return loaded;
}

calibration::CalibrationToWrite toWrite(const LoadedCalibration& loaded) {
  return {loaded.calibration, loaded.unit, loaded.width, loaded.height};
}

py::dict fieldOfView(const rig::FieldOfView& view) {
  py::dict result;
  result["horizontal"] = view.horizontal;
  result["vertical"] = view.vertical;
  result["diagonal"] = view.diagonal;
  result["folds"] = view.folds;
  return result;
}

py::dict geometryOf(const calibration::Geometry& geometry) {
  py::dict result;
  result["baseline"] = geometry.baseline;
  result["rotation_angle"] = geometry.rotationAngle;
  result["rotation_deviation"] = geometry.rotationDeviation;
  result["rotation_determinant"] = geometry.rotationDeterminant;
  result["convergence"] = geometry.convergence;
  result["left"] = fieldOfView(geometry.left);
  result["right"] = fieldOfView(geometry.right);
  result["fundamental_error"] = geometry.fundamentalError;
  return result;
}

/// @param file  null = without a recording
py::dict check(const LoadedCalibration& loaded, const RecordingFile* file) {
  calibration::Geometry geometry;
  std::vector<calibration::Finding> findings;
  std::optional<calibration::CalibrationHealth> health;
  {
    const py::gil_scoped_release free;
    geometry = calibration::measure(loaded);
    findings = calibration::judge(loaded, geometry);
    if (file != nullptr) {
      const std::lock_guard<std::mutex> lock(file->mutex());
      const auto pairs = calibration::observedPairs(file->reader());
      calibration::judgeWithPairs(loaded, pairs, findings);
      health = calibration::healthOf(loaded, pairs);
    }
  }
  py::dict result;
  result["geometry"] = geometryOf(geometry);
  py::list list;
  for (const calibration::Finding& finding : findings)
    list.append(py::make_tuple(finding.code, finding.text));
  result["findings"] = list;
  result["verdict"] =
      health ? py::object(py::str(calibration::nameOf(health->verdict))) : py::none();
  result["verdict_text"] = health ? py::object(py::str(health->text)) : py::none();
  return result;
}

}  // namespace

void addCalibration(py::module_& module) {
  py::class_<LoadedCalibration>(module, "LoadedCalibration")
      .def(py::init(&fromBytes), py::arg("record"), py::arg("unit"), py::arg("width"),
           py::arg("height"))
      .def_static(
          "read",
          [](const std::vector<std::string>& paths, const std::optional<std::string>& unit) {
            LoadedCalibration loaded = calibration::readCalibration(paths, unit);
            calibration::requireUsable(loaded, paths.front());
            return loaded;
          })
      .def_property_readonly("record",
                             [](const LoadedCalibration& loaded) {
                               return py::bytes(calibration::recordBytes(loaded.calibration));
                             })
      .def_readonly("format", &LoadedCalibration::format)
      .def_readonly("unit", &LoadedCalibration::unit)
      .def_readonly("width", &LoadedCalibration::width)
      .def_readonly("height", &LoadedCalibration::height)
      .def("json",
           [](const LoadedCalibration& loaded) {
             return calibration::toJson(loaded.calibration, loaded.unit, loaded.width,
                                        loaded.height)
                 .dump(2);
           })
      .def("opencv",
           [](const LoadedCalibration& loaded) { return calibration::openCvText(toWrite(loaded)); })
      .def("kalibr",
           [](const LoadedCalibration& loaded) { return calibration::kalibrText(toWrite(loaded)); })
      .def("check", &check, py::arg("recording") = nullptr);
  module.def("built_in_rig", [] {
    const rig::StereoRig rig = rig::builtInRig();
    return py::make_tuple(py::bytes(calibration::recordBytes(rig.calibration)), rig.width,
                          rig.height);
  });
}

}  // namespace bindings
