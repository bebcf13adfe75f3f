// Public: installed for hosts.
#pragma once

#include <alg_factory/api/Export.h>

namespace algorithm {

/// Host-supplied receiver of the library's messages.
///
/// The host owns the object and keeps it alive for as long as the library may call it.
class ALG_FACTORY_INTERFACE LogSink {
 public:
  /// Called on the thread that called into the library.
  /// @param level    4 for the service and the stages, 3 for the device packet decoder.
  /// @param message  NUL-terminated fixed text that begins with "alg: "; valid during the call.
  /// @return ignored.
  virtual bool Log(int level, const char* message) = 0;

  virtual ~LogSink() = default;
};

}  // namespace algorithm
