#pragma once

#include <alg_factory/api/AlgFactory.h>
#include <alg_kit/session/QuickLock.h>
#include <alg_kit/session/UnitSink.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#if defined(__GNUC__)
// The interface has no virtual destructor, and never gets one: its virtual table is fixed.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace session {

struct TapOptions {
  std::function<std::int64_t()> clock;  ///< ns for Call::startNs; empty = the monotonic clock
  bool measureDurations = true;         ///< by the monotonic clock, whatever `clock` is
};

/// An algorithm object that stands before another: it forwards all seven operations, and hands what
/// went in and out, both callbacks included, to any number of sinks: a recorder, a stream.
///
/// Use it in the place of the other object, sinks of the host included. Calls that are made past it
/// reach the library as ever; they, their callbacks and what the host calls from inside those are
/// forwarded and handed to nobody.
///
/// While a sink listens, calls from several threads are put in one order, the one in which the
/// library ran them: a query waits for the packet that is under way, with its callbacks. A host
/// whose callback waits for another thread's call would wait for ever (as it would in `Deliver`
/// without the tap).
///
/// Locks. A thread takes the lock of the order before the library's, and never from inside a
/// callback: there it holds it already, or goes without. The list of sinks has a lock of its own,
/// under which neither the library nor the host is called. A callback that the tap does not see (a
/// sink that was set past it, another tap's) may hold the library's lock: so no call waits for its
/// place in the order longer than a second. It is forwarded then, and the sinks `miss` it: whatever
/// a host mixes, nothing stands still.
///
/// In a forked child every call is only forwarded: the locks may belong to threads of the parent.
class TapAlg : public algorithm::AlgBase {
 public:
  /// @param alg  not owned; used until this object's end
  /// @param options  how calls are timed
  /// @throws std::invalid_argument if `alg` is null
  explicit TapAlg(algorithm::AlgBase* alg, TapOptions options = {});

  /// No call may be under way through the tap. The host's sinks go on being called.
  virtual ~TapAlg();
  TapAlg(const TapAlg&) = delete;
  TapAlg& operator=(const TapAlg&) = delete;

  bool Init(int productType, const unsigned char* config, int configOffset) override;
  bool InputStream(int streamType, const unsigned char* buffer, int offset, int length) override;
  bool SetDataCallback(algorithm::DataSink* sink) override;
  bool SetLogCallback(algorithm::LogSink* sink) override;
  bool SetFilterMode(int parameter, int mode, void* reserved) override;
  int GetFixedCode() override;
  bool HandleEvent(int eventType, const void* input, void* output) override;

  /// From the next outermost call on the sink takes every unit. At any time, on any thread.
  /// @param sink  not owned; used until `UnitSink::end`
  void add(UnitSink& sink);

  /// Ends the sink, without waiting for a call that is under way on another thread: that one is not
  /// part of it any more. From inside a callback the sink takes the call that is under way, and
  /// ends when it has returned. Does nothing for a sink that is not there.
  void remove(UnitSink& sink);

  /// This thread is in a callback of a call that will be handed over.
  bool insideCall() const;

  /// The index that the next call gets.
  std::int64_t nextIndex() const { return nextIndex_; }

  /// Hands on where simulated markers really were.
  void addTruth(const std::vector<TruthRow>& rows);

 private:
  class Scope;
  struct Relay;

  struct Listener {
    UnitSink* sink;
    bool leaving;  ///< after the unit that is under way
  };

  bool deliver(const void* buffer, int offset, int length);
  bool log(int level, const char* message);
  template <typename Action>
  void assemble(Action action) noexcept;
  void handOver() noexcept;
  void endThoseLeaving() noexcept;
  void missOne() noexcept;

  algorithm::AlgBase* const alg_;
  const TapOptions options_;
  std::unique_ptr<Relay> relay_;
  const int bornIn_;  ///< see processGeneration
  bool libraryKnowsRelay_ = false;
  std::atomic<std::int64_t> nextIndex_{0};
  std::atomic<int> productType_{0};  ///< of the latest Init: it decides which bytes are read

  QuickLock sinksLock_;
  std::vector<Listener> sinks_;
  std::atomic<bool> heard_{false};  ///< there is a sink

  QuickLock order_;             ///< held during an outermost call; guards what follows
  Scope* innermost_ = nullptr;  ///< of the calls that have not returned yet
  Unit unit_;
  std::int64_t callsInUnit_ = 0;
  bool whole_ = true;  ///< `unit_` holds all that happened
};

}  // namespace session

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
