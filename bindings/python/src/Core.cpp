#include <alg_factory/api/Version.h>
#include <bindings/python/src/Parts.h>

PYBIND11_MODULE(_core, module) {
  module.doc() = "What alg_factory is made of. Use the package around it.";
  module.attr("__version__") = alg_factory_version();
  bindings::addErrors(module);
  bindings::addRecords(module);
  bindings::addHost(module);
  bindings::addCalibration(module);
  bindings::addRecording(module);
  bindings::addAnalysis(module);
  bindings::addBodies(module);
  bindings::addSessions(module);
}
