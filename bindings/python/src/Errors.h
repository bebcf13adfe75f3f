// What the binding itself refuses.
#pragma once

#include <stdexcept>

namespace bindings {

/// The process's pipeline has other settings.
class PipelineInUse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The library returned false.
class Refused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace bindings
