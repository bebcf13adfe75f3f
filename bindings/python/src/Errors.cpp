#include <bindings/python/src/Errors.h>

#include <alg_kit/recording/Recording.h>
#include <alg_kit/text/TextFile.h>
#include <bindings/python/src/Parts.h>

namespace py = pybind11;

namespace bindings {

void addErrors(py::module_& module) {
  const auto base = py::exception<std::nullptr_t>(module, "Error");
  base.attr("__doc__") = "What alg_factory refuses, in one line.";
  const auto add = [&](auto&& exception, const char* doc) { exception.attr("__doc__") = doc; };
  add(py::register_exception<recording::RecordingError>(module, "RecordingError", base),
      "A recording that cannot be read or written: which file, what was expected, what was found.");
  add(py::register_exception<text::FileError>(module, "FileError", base),
      "A calibration that cannot be used: which file and line, what was expected, what was found.");
  add(py::register_exception<PipelineInUse>(module, "PipelineInUse", base),
      "The process's one pipeline is set up otherwise.");
  add(py::register_exception<Refused>(module, "Refused", base),
      "The library returned false; with its message, where it gave one.");
  for (const char* const name :
       {"Error", "RecordingError", "FileError", "PipelineInUse", "Refused"})
    module.attr(name).attr("__module__") = "alg_factory";
}

}  // namespace bindings
