// Public: installed for hosts.
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

/// The tracking library as a host sees it. Obtained from `AlgFactory::CreateALG`. Constants.h names
/// the numbers that stand below.
///
/// All objects share one process-wide pipeline. The order of the operations is the order of the
/// virtual table and never changes.
///
/// Calling order: `SetLogCallback` (first: failures are reported without checking that a sink is
/// set), `SetDataCallback`, `Init`, optionally `SetFilterMode`, then `InputStream` and
/// `HandleEvent` for as long as the process lives. There is no shutdown operation.
///
/// Units: positions are in the unit of the calibration's translation (the limits below suit
/// millimetres), in the right camera's frame with y and z negated: x right, y up, z towards the
/// viewer. Rates are per second, stamps microseconds, angles degrees.
///
/// Threads: one thread feeds `InputStream`; other threads may call `HandleEvent` with events 0 to 5
/// at the same time. Everything else (`Init`, `SetFilterMode`, the callback setters, event 16) must
/// not overlap any other call.
///
/// Errors: false, with one message to the log sink where a message is documented. The only
/// exception is std::bad_alloc (and whatever the host's own sinks throw).
///
/// Time and memory: both are bounded, since at most 512 bytes of a packet are decoded: a call takes
/// far less than a frame's time, and the pipeline less than 256 KiB. After `Init` neither
/// `InputStream` nor `HandleEvent` allocates. A query waits for another thread's frame while that
/// is published, `DataSink::Deliver` included.
///
/// The host's end: the pipeline is destroyed when the library is unloaded or the process exits; if
/// calls are inside at that moment, by the last of them to leave. It waits for nobody. A call that
/// comes later (from a static destructor, from a thread that nobody stopped) returns false without
/// a message. What stays with the host: it may unload only when no call is inside and none will
/// come, and its sinks must outlive the calls.
///
/// Fork: while a thread forks, calls of other threads wait. If no call was inside at that moment,
/// the child has a pipeline of its own, in the state of the parent's; if one was, every call in the
/// child returns false without a message. (`GetFixedCode` always answers.)
class ALG_FACTORY_INTERFACE AlgBase {
 public:
  /// Configures the whole pipeline. May be called again; histories, ids and filters survive.
  ///
  /// | product type | objects | marker points | largest depth | particulars |
  /// |---|---|---|---|---|
  /// | 0 | 0 to 2 | 1 each | 3500 | points more than 1200 from object 2 are dropped |
  /// | 1 | 0 to 2 | 1, 1, 2 | 3500 | the same; jumps are held; object 2 has heading and bearing |
  /// | 2 | 0 to 5 | 1 each | 4500 | |
  ///
  /// @param productType   0, 1 or 2. Other values are accepted here and refused by `InputStream`.
  /// @param config        buffer that holds an algorithm::StereoCalibration (920 bytes) at
  ///                      `configOffset`; need not be aligned, read during the call only.
  /// @param configOffset  bytes from `config` to the calibration; may be negative.
  /// @return false with "alg: configure failed!\n" when `config` is null. The product type is then
  ///         the new one, and the stages keep the old.
  virtual bool Init(int productType, const unsigned char* config, int configOffset) = 0;

  /// Feeds one payload of `length` bytes at `buffer + offset`; read during the call only.
  ///
  /// | streamType | payload |
  /// |---|---|
  /// | 0 | a device packet |
  /// | 1 | an InertialRecord (56 bytes), of which only p is used |
  /// | 2 | a 4-byte little-endian frame stamp in microseconds, then a device packet |
  /// | 3, 4 | an InertialRecord (56 bytes) of device 0 or 1 |
  /// | 5 | a 32-bit side hint |
  ///
  /// Type 0 feeds the marker filters (records 0 to 5), type 2 the head filters (records 0 to 2). Of
  /// a packet longer than 512 bytes the rest is not read.
  ///
  /// For types 0 and 2 the pipeline runs and `DataSink::Deliver` is called before this returns;
  /// an empty packet returns true and delivers nothing. A packet with errors is reported and
  /// delivers what could be decoded. What types 1 and 3 to 5 bring is kept for later frames; their
  /// length is not compared with the table, so the whole record must be there.
  /// @return false with "alg: unknown project type!\n" or
  ///         "alg: unknown stream types for current product type!\n"; false without a message for
  ///         a null buffer (unless type 0 with length 0), a negative length, or type 2 with fewer
  ///         than 4 bytes. Nothing has changed then.
  virtual bool InputStream(int streamType, const unsigned char* buffer, int offset, int length) = 0;

  /// Sets the receiver of result blocks; null returns false and keeps the earlier one.
  /// Must be set before stream types 0 and 2: the pointer is used without a null test.
  virtual bool SetDataCallback(DataSink* sink) = 0;

  /// Sets the receiver of messages; null returns false and keeps the earlier one.
  virtual bool SetLogCallback(LogSink* sink) = 0;

  /// Switches pose smoothing; every mode but -1 builds all pose filters anew. A head filter then
  /// starts from its object's next position. So does a marker filter whose object was not in the
  /// block filtered last; one whose object was goes on from zeros, and takes some frames.
  /// @param parameter  0; any other value returns false and changes nothing.
  /// @param mode       -1 off; 1 on with large measurement noise (variance 1e-4); any other value
  ///                   on with small measurement noise (1e-6), in squared units of position.
  /// @param reserved   not used.
  virtual bool SetFilterMode(int parameter, int mode, void* reserved) = 0;

  /// @return 800, always.
  virtual int GetFixedCode() = 0;

  /// Queries a pose (events 0 to 5) or exchanges an orientation (event 16). Queries change state
  /// (see below): a session repeats only with its queries.
  ///
  /// **Events 0 to 5** ask for the object of record 0 to 5 of the result block and fill a
  /// PoseAnswer (52 bytes).
  ///
  /// | event | product types 0 and 1 | product type 2 |
  /// |---|---|---|
  /// | 0, 1 | object 0, 1; head filter | object 0, 1; marker filter; bridged |
  /// | 2 | object 2 at a stamp; head filter | object 2; marker filter; bridged |
  /// | 3 to 5 | no object of these products; bridged | object 3 to 5; marker filter; bridged |
  ///
  /// - The raw position is that of the latest block. The answer is *as measured* (filtered = raw,
  ///   rates zero) in filter mode -1; until a block has started the filter that `SetFilterMode`
  ///   built; and, to events 0 and 1 of product types 0 and 1 in any mode but 1, while the object's
  ///   depth |z| is below 1500.
  /// - Event 2 on product types 0 and 1 reads a 64-bit stamp in microseconds at `input`. Where it
  ///   lies after the latest frame stamp by more than 0 and less than 0.1 s, the filter's position
  ///   is moved on by rate times that time. The reserved stamp 1234 asks for the filter's position
  ///   as it is. For all other stamps the answer is as measured. No other pose event reads `input`.
  /// - Ids follow the blocks only while a filter mode is on: of stream type 2 those of head
  ///   filters, of stream type 0 those of marker filters. Before, and after a return to mode -1,
  ///   they stay as they were: -1 to head events at first; record numbers to bridged ones.
  /// - Bridged: an object that the latest block misses is answered under its id, with the position
  ///   and rates last known, for 90 queries; the next one answers id -1. Each such query counts. A
  ///   second query of the same record before the next block finds the id that the first one put
  ///   there and sets the count back to 0.
  /// - An answer with id -1 keeps in all other fields what the answer before it had, whatever
  ///   object that was of. So does every answer to events 0 to 2 after an `Init` with an unknown
  ///   product type, id included.
  ///
  /// **Event 16** takes an OrientationSample (24 bytes) and fills a HeadingAnswer (48 bytes): the
  /// heading of product type 1's object 2, as the cameras see it, against that orientation. A new
  /// offset is reported once.
  ///
  /// Buffers need not be aligned.
  /// @return false with "alg: unknown event type!\n"; false without a message where `output`, or an
  ///         `input` that is read, is null. `output` is then left alone.
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
