// Recordings as columns.
#include <alg_kit/calibration/CalibrationRecord.h>
#include <bindings/python/src/Arrays.h>
#include <bindings/python/src/Columns.h>
#include <bindings/python/src/Parts.h>
#include <bindings/python/src/Reading.h>
#include <pybind11/stl.h>

#include <utility>

namespace py = pybind11;

namespace bindings {
namespace {

py::dict metadataOf(const RecordingFile& file) {
  const recording::Metadata& metadata = file.reader().metadata();
  py::dict values;
  for (const auto& [key, value] : metadata.values)
    values[py::str(key)] = py::reinterpret_steal<py::object>(
        PyUnicode_DecodeUTF8(value.data(), static_cast<py::ssize_t>(value.size()), "replace"));
  py::dict result;
  result["library_version"] = metadata.libraryVersion;
  result["platform"] = metadata.platform;
  result["clock"] = metadata.clock;
  result["format_version"] = metadata.formatVersion;
  result["complete"] = metadata.complete;
  result["journal_missing"] = metadata.journalMissing;
  result["dropped_calls"] = metadata.droppedCalls;
  result["values"] = values;
  return result;
}

/// (call, product type, 920 bytes or None) of every Init.
py::list configurationsOf(const RecordingFile& file) {
  const auto found = reading(
      file, [](const recording::RecordingReader& reader) { return reader.configurations(); });
  py::list result;
  for (const recording::Configuration& configuration : found)
    result.append(py::make_tuple(
        configuration.call, configuration.productType,
        configuration.calibration
            ? py::object(py::bytes(calibration::recordBytes(*configuration.calibration)))
            : py::none()));
  return result;
}

py::dict columnsOf(const RecordingFile& file) {
  Columns columns = reading(file, [](const recording::RecordingReader& reader) {
    return readColumns(reader, checkInterrupt);
  });
  py::dict result;
  result["calls"] = toArray(std::move(columns.calls));
  result["packets"] = toArray(std::move(columns.packets));
  result["blocks"] = toArray(std::move(columns.blocks));
  result["answers"] = toArray(std::move(columns.answers));
  result["headings"] = toArray(std::move(columns.headings));
  result["logs"] = toArray(std::move(columns.logs));
  result["payloads"] = toArray(std::move(columns.payloads));
  py::list texts;
  for (const std::string& text : columns.texts)
    texts.append(py::reinterpret_steal<py::object>(
        PyUnicode_DecodeUTF8(text.data(), static_cast<py::ssize_t>(text.size()), "replace")));
  result["texts"] = texts;
  return result;
}

py::array truthOf(const RecordingFile& file) {
  return toArray(reading(file, [](const recording::RecordingReader& reader) {
    return readTruth(reader, checkInterrupt);
  }));
}

}  // namespace

void addRecording(py::module_& module) {
  py::class_<RecordingFile>(module, "RecordingFile")
      .def(py::init<const std::string&>(), py::call_guard<py::gil_scoped_release>())
      .def_static("in_memory", &RecordingFile::inMemory, py::call_guard<py::gil_scoped_release>())
      .def("save", &RecordingFile::save, py::call_guard<py::gil_scoped_release>())
      .def_property_readonly("path", [](const RecordingFile& file) { return file.reader().path(); })
      .def_property_readonly("is_in_memory", &RecordingFile::isInMemory)
      .def_property_readonly("has_truth",
                             [](const RecordingFile& file) {
                               return reading(file, [](const recording::RecordingReader& reader) {
                                 return reader.hasTruth();
                               });
                             })
      .def("metadata", metadataOf)
      .def("configurations", configurationsOf)
      .def("columns", columnsOf)
      .def("truth", truthOf);
}

}  // namespace bindings
