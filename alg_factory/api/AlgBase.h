#pragma once

#include <alg_factory/api/Export.h>

// A virtual destructor would add slots to the virtual table that hosts are compiled against.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace algorithm {

class DataSink;
class LogSink;

/// The tracking library as a host sees it. Obtained from `AlgFactory::CreateALG`.
///
/// All objects share one process-wide pipeline. The order of the operations is the order of the
/// virtual table and never changes.
///
/// Calling order: `SetLogCallback` (first: failures are reported without checking that a sink is
/// set), `SetDataCallback`, `Init`, optionally `SetFilterMode`, then `InputStream` and
/// `HandleEvent` for as long as the process lives. There is no shutdown operation.
///
/// Threads: one thread feeds `InputStream`; other threads may call `HandleEvent` with events 0 to 5
/// at the same time. Everything else (`Init`, `SetFilterMode`, the callback setters, event 16) must
/// not overlap any other call.
///
/// Errors: false, with one message to the log sink where a message is documented. The only
/// exception is std::bad_alloc (and whatever the host's own sinks throw).
class ALG_FACTORY_INTERFACE AlgBase {
 public:
  /// Configures the whole pipeline. May be called again; histories, ids and filters survive.
  /// @param productType   0, 1 or 2. Other values are accepted here and refused by `InputStream`.
  /// @param config        buffer that holds an algorithm::StereoCalibration (920 bytes) at
  ///                      `configOffset`; need not be aligned, read during the call only.
  /// @param configOffset  bytes from `config` to the calibration; may be negative.
  /// @return false with "alg: configure failed!\n" when `config` is null.
  virtual bool Init(int productType, const unsigned char* config, int configOffset) = 0;

  /// Feeds one payload of `length` bytes at `buffer + offset`; read during the call only.
  ///
  /// | streamType | payload |
  /// |---|---|
  /// | 0 | a device packet |
  /// | 1 | an InertialRecord (56 bytes), of which only p0, p1, p2 are used |
  /// | 2 | a 4-byte little-endian frame stamp in microseconds, then a device packet |
  /// | 3, 4 | an InertialRecord (56 bytes) of device 0 or 1 |
  /// | 5 | a 32-bit side hint |
  ///
  /// For types 0 and 2 the pipeline runs and `DataSink::Deliver` is called before this returns;
  /// an empty packet returns true and delivers nothing.
  /// @return false with "alg: unknown project type!\n" or
  ///         "alg: unknown stream types for current product type!\n"; false without a message for
  ///         a null buffer (unless type 0 with length 0), a negative length, or type 2 with fewer
  ///         than 4 bytes.
  virtual bool InputStream(int streamType, const unsigned char* buffer, int offset, int length) = 0;

  /// Sets the receiver of result blocks; null returns false and keeps the earlier one.
  /// Must be set before stream types 0 and 2: the pointer is used without a null test.
  virtual bool SetDataCallback(DataSink* sink) = 0;

  /// Sets the receiver of messages; null returns false and keeps the earlier one.
  virtual bool SetLogCallback(LogSink* sink) = 0;

  /// Switches pose smoothing and rebuilds the pose filters.
  /// @param parameter  0; any other value returns false and changes nothing.
  /// @param mode       -1 off; 1 on with large measurement noise (1e-4); any other value on with
  ///                   small measurement noise (1e-6).
  /// @param reserved   not used.
  virtual bool SetFilterMode(int parameter, int mode, void* reserved) = 0;

  /// @return 800, always.
  virtual int GetFixedCode() = 0;

  /// Queries a pose (events 0 to 5) or exchanges an orientation (event 16).
  ///
  /// - Events 0 to 5 fill a PoseAnswer (52 bytes). The input is not read, except by event 2 on
  ///   product types 0 and 1: a 64-bit stamp in microseconds.
  /// - Event 16 takes an OrientationSample (24 bytes) and fills a HeadingAnswer (48 bytes).
  ///
  /// Buffers need not be aligned.
  /// @return false with "alg: unknown event type!\n"; false without a message where `output`, or an
  ///         `input` that is read, is null.
  virtual bool HandleEvent(int eventType, const void* input, void* output) = 0;

  /// `delete alg` and `std::unique_ptr<AlgBase>` free what `CreateALG` made; the pipeline and the
  /// other objects stay as they are. The memory is the library's and is given back to the operator
  /// delete of the program that deletes: the two must share one C++ runtime's heap, as they do on
  /// Linux and in a Windows host built with the mingw-w64 of the library. A host of another runtime
  /// (Visual C++) keeps its objects, a few bytes each, for the life of the process.
  ///
  /// Without a virtual destructor only what `CreateALG` made may be deleted through this class; a
  /// class that a host derives from it is deleted as what it is. For the same reason compilers warn
  /// of a bare `delete alg`, and not of a unique_ptr.
  static void operator delete(void* object) noexcept { ::operator delete(object); }
};

}  // namespace algorithm

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
