// The process's one host.
#pragma once

#include <alg_factory/api/AlgFactory.h>
#include <bindings/c/Guard.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace c_interface {

/// A callback of the host's threw. Not an exception of the standard library's, so that nothing on
/// its way takes it for one.
struct CallbackThrew {};

/// What the library is given as its sinks: hands on to the host's functions. The library keeps the
/// pointer, so the object is never destroyed.
class Callbacks final : public algorithm::DataSink, public algorithm::LogSink {
 public:
  void setBlockFunction(alg_block_fn function, void* user) { block_ = {function, user}; }
  void setLogFunction(alg_log_fn function, void* user) { log_ = {function, user}; }
  void forget() { *this = Callbacks(); }

  bool Deliver(const void* buffer, int offset, int length) override;
  bool Log(int level, const char* message) override;

 private:
  template <typename Function>
  struct Callback {
    Function function = nullptr;
    void* user = nullptr;
  };
  Callback<alg_block_fn> block_;
  Callback<alg_log_fn> log_;
};

/// What a host was set up with, for a recording that begins later.
struct SetUp {
  int productType = 0;
  std::optional<algorithm::StereoCalibration> calibration;
  std::optional<int> filterMode;
};

/// How a recording ended.
struct RecordingEnd {
  alg_record_status status;
  std::string problem;  ///< why the file is not whole; empty if it is
};

/// What records a host. Windows has none.
class HostRecording {
 public:
  virtual ~HostRecording() = default;

  /// The object that stands before the library.
  virtual std::shared_ptr<algorithm::AlgBase> alg() = 0;

  /// Writes the configuration down without configuring anything.
  virtual void repeat(const SetUp& setUp) = 0;

  virtual alg_record_status status() const = 0;

  /// Completes the file.
  virtual RecordingEnd close() = 0;
};

class Host {
 public:
  /// Never destroyed: the library keeps its sinks, and static destructors may still call.
  static Host& instance();

  alg_host* handle() { return reinterpret_cast<alg_host*>(this); }

  /// @throws Failure for a null handle and for one that is closed or not ours
  static Host& at(alg_host* handle);

  void open(int productType);
  void close();

  algorithm::AlgBase& library() { return *library_; }
  /// The library, or the recorder that stands before it, for the length of a call.
  std::shared_ptr<algorithm::AlgBase> alg() const { return std::atomic_load(&alg_); }
  Callbacks& callbacks() { return callbacks_; }

  void init(const algorithm::StereoCalibration& calibration);
  void setFilterMode(int mode);
  void input(int streamType, const unsigned char* payload, std::size_t size);
  void requireReady() const;

  HostRecording* recording() { return recording_.get(); }
  void record(std::unique_ptr<HostRecording> recording);
  RecordingEnd stopRecording();

  /// Stands while a call runs that must be alone.
  class Alone {
   public:
    /// @throws Failure if there is another one
    explicit Alone(Host& host);
    ~Alone();
    Alone(const Alone&) = delete;
    Alone& operator=(const Alone&) = delete;

   private:
    Host& host_;
  };

  /// Stands while a replay has the pipeline; the library gets the host's sinks back at its end.
  class Replaying {
   public:
    /// @throws Failure if a host is open or another replay runs
    explicit Replaying(Host& host);
    ~Replaying();
    Replaying(const Replaying&) = delete;
    Replaying& operator=(const Replaying&) = delete;
    bool fresh() const { return fresh_; }

   private:
    Host& host_;
    bool fresh_;
  };

 private:
  Host();
  void giveSinks(algorithm::AlgBase& alg);

  algorithm::AlgBase* const library_;
  std::shared_ptr<algorithm::AlgBase> alg_;  ///< read and written as an atomic
  Callbacks callbacks_;
  SetUp setUp_;
  std::unique_ptr<HostRecording> recording_;
  std::atomic<bool> ready_{false};
  std::atomic_flag alone_ = ATOMIC_FLAG_INIT;

  std::mutex opening_;         ///< guards what follows
  std::atomic<int> opens_{0};  ///< read without the lock
  bool replaying_ = false;
  bool used_ = false;  ///< the pipeline was configured or fed in this process, through here
};

}  // namespace c_interface
