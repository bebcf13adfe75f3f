// Public: installed for hosts.
#pragma once

#include <alg_factory/api/Export.h>

namespace algorithm {

/// Host-supplied receiver of result blocks.
///
/// The host owns the object and keeps it alive for as long as the library may call it.
class ALG_FACTORY_INTERFACE DataSink {
 public:
  /// Called once for every device packet that reaches the end of the pipeline, on the thread that
  /// called `InputStream` and inside the library's result lock. The lock is recursive: the host may
  /// call `HandleEvent` from here. If this throws, the lock is released and the exception reaches
  /// the caller of `InputStream`.
  /// @param buffer  an algorithm::ResultBlock, aligned; owned by the library, valid during the
  /// call.
  /// @param offset  always 0.
  /// @param length  always 528, sizeof(algorithm::ResultBlock).
  /// @return ignored.
  virtual bool Deliver(const void* buffer, int offset, int length) = 0;

  virtual ~DataSink() = default;
};

}  // namespace algorithm
