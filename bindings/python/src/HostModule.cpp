// The process's one pipeline, for Python.
#include <alg_factory/api/AlgFactory.h>
#include <bindings/python/src/Errors.h>
#include <bindings/python/src/Parts.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace py = pybind11;

namespace bindings {
namespace {

/// The bytes of a buffer object: bytes, bytearray, memoryview, a numpy array.
std::string bytesOf(const py::handle& object) {
  Py_buffer view;
  if (PyObject_GetBuffer(object.ptr(), &view, PyBUF_SIMPLE) != 0) throw py::error_already_set();
  std::string bytes(static_cast<const char*>(view.buf), static_cast<std::size_t>(view.len));
  PyBuffer_Release(&view);
  return bytes;
}

const unsigned char* unsignedBytes(const std::string& bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

/// A copy, as a numpy record.
template <typename Record>
py::object toRecord(const Record& record, const char* type) {
  const py::array array(py::dtype::of<Record>(), std::vector<py::ssize_t>(), &record);
  return array.attr("view")(recordType(type)).attr("__getitem__")(py::tuple());
}

class Host;

/// The library has one pipeline per process, and so there is one of these, which lives as long.
///
/// Locks: a thread gives the interpreter lock away before it waits for `order_`, and takes it again
/// only inside a callback or when `order_` is free: no two threads can wait for each other.
class Pipeline : private algorithm::DataSink, private algorithm::LogSink {
 public:
  static Pipeline& instance() {
    static Pipeline* const pipeline = new Pipeline;  // kept: the library has no release operation
    return *pipeline;
  }

  /// Sets the library up for the first host; checks that a later one wants the same.
  void join(int productType, const std::string& calibration) {
    const py::gil_scoped_release free;
    const std::lock_guard<std::recursive_mutex> lock(order_);
    if (!isSetUp_) return setUp(productType, calibration);
    if (productType == productType_ && calibration == calibration_) return;
    const bool other = productType != productType_;
    throw PipelineInUse(
        "this process's pipeline is set up for product type " + std::to_string(productType_) +
        (other ? ", found " + std::to_string(productType) : " with another calibration") +
        ": the library has one pipeline per process. Use another process, or Host.init of the host "
        "that is there, which keeps histories and filters");
  }

  void setUp(int productType, const std::string& calibration) {
    alg_->Init(productType, unsignedBytes(calibration), 0);
    productType_ = productType;
    calibration_ = calibration;
    isSetUp_ = true;
  }

  /// Runs `call(alg)` for a host, without the interpreter lock. What a callback raised is raised
  /// here, when the library is done.
  /// @throws Refused with the library's message where `call` returns false
  template <typename Call>
  void run(Host& host, const char* what, const Call& call) {
    Frame frame{&host, nullptr, {}, {}};
    bool accepted = false;
    {
      const py::gil_scoped_release free;
      const std::lock_guard<std::recursive_mutex> lock(order_);
      frame.outer = frame_;
      frame_ = &frame;
      struct Leave {
        Pipeline& pipeline;
        ~Leave() { pipeline.frame_ = pipeline.frame_->outer; }
      } const leave{*this};
      accepted = call(*alg_);
    }
    if (frame.error) throw *std::unique_ptr<py::error_already_set>(std::move(frame.error));
    if (!accepted)
      throw Refused(std::string(what) + ": the library refused it" +
                    (frame.messages.empty() ? "" : ": " + frame.messages));
  }

  int productType() const { return productType_; }
  int filterMode() const { return filterMode_; }
  void setFilterMode(int mode) { filterMode_ = mode; }

 private:
  /// A call that is under way.
  struct Frame {
    Host* host;
    Frame* outer;
    std::unique_ptr<py::error_already_set> error;  ///< what its callbacks raised first
    std::string messages;
  };

  Pipeline() : alg_(algorithm::AlgFactory::CreateALG(0)) {
    alg_->SetLogCallback(this);
    alg_->SetDataCallback(this);
  }

  bool Deliver(const void* buffer, int offset, int length) override;
  bool Log(int level, const char* message) override;

  /// Runs a callback under the interpreter lock and keeps what it raises.
  template <typename Callback>
  void callBack(const Callback& callback) {
    const py::gil_scoped_acquire lock;
    try {
      callback();
    } catch (py::error_already_set& error) {
      if (frame_->error)
        error.discard_as_unraisable("a second callback of one call");
      else
        frame_->error = std::make_unique<py::error_already_set>(error);
    }
  }

  algorithm::AlgBase* const alg_;
  std::recursive_mutex order_;
  Frame* frame_ = nullptr;
  bool isSetUp_ = false;
  std::atomic<int> productType_{0};
  std::atomic<int> filterMode_{algorithm::kFilterOff};
  std::string calibration_;
};

class Host {
 public:
  Host(int productType, const py::object& calibration) {
    Pipeline::instance().join(checked(productType), calibrationBytes(calibration));
  }

  void init(int productType, const py::object& calibration) {
    const std::string bytes = calibrationBytes(calibration);
    checked(productType);
    run("init", [&](algorithm::AlgBase&) {
      Pipeline::instance().setUp(productType, bytes);
      return true;
    });
  }

  void feed(const py::object& packet, const std::optional<std::int64_t>& stamp) {
    std::string payload = bytesOf(packet);
    if (stamp) {
      if (*stamp < 0 || *stamp > std::int64_t{0xFFFFFFFF})
        throw py::value_error("stamp: expected microseconds from 0 to 4294967295, found " +
                              std::to_string(*stamp));
      const auto word = static_cast<std::uint32_t>(*stamp);
      payload.insert(0, reinterpret_cast<const char*>(&word), sizeof word);
    }
    give(stamp ? algorithm::kStampedPacket : algorithm::kPacket, payload, "feed");
  }

  void input(int streamType, const py::object& buffer) {
    if (!algorithm::isStreamType(streamType))
      throw py::value_error("expected a stream type from 0 to 5, found " +
                            std::to_string(streamType));
    const std::string payload = bytesOf(buffer);
    const std::size_t least = algorithm::leastPayloadSize(streamType);
    if (payload.size() < least)
      throw py::value_error("stream type " + std::to_string(streamType) + ": expected at least " +
                            std::to_string(least) + " bytes, found " +
                            std::to_string(payload.size()));
    give(streamType, payload, "input");
  }

  py::object pose(int object, const std::optional<std::uint64_t>& stamp) {
    if (!algorithm::isPoseEvent(object))
      throw py::value_error("expected an object from 0 to 5, found " + std::to_string(object));
    const std::uint64_t at = stamp.value_or(algorithm::kFilterStateStamp);
    algorithm::PoseAnswer answer;
    run("pose", [&](algorithm::AlgBase& alg) { return alg.HandleEvent(object, &at, &answer); });
    return toRecord(answer, "POSE_ANSWER");
  }

  py::object heading(const std::array<float, 4>& orientation, std::uint64_t value) {
    algorithm::OrientationSample sample;
    std::copy(orientation.begin(), orientation.end(), sample.orientation);
    sample.value = value;
    algorithm::HeadingAnswer answer;
    run("heading", [&](algorithm::AlgBase& alg) {
      return alg.HandleEvent(algorithm::kHeadingExchange, &sample, &answer);
    });
    return toRecord(answer, "HEADING_ANSWER");
  }

  int filterMode() const { return Pipeline::instance().filterMode(); }
  void setFilterMode(int mode) {
    run("filter_mode", [&](algorithm::AlgBase& alg) {
      const bool accepted = alg.SetFilterMode(0, mode, nullptr);
      if (accepted) Pipeline::instance().setFilterMode(mode);
      return accepted;
    });
  }

  int fixedCode() {
    int code = 0;
    run("fixed_code", [&](algorithm::AlgBase& alg) {
      code = alg.GetFixedCode();
      return true;
    });
    return code;
  }

  int productType() const { return Pipeline::instance().productType(); }

  py::object onBlock() const { return onBlock_; }
  py::object onLog() const { return onLog_; }
  void setOnBlock(const py::object& callback) { set(onBlock_, wantsBlocks_, callback, "on_block"); }
  void setOnLog(const py::object& callback) { set(onLog_, wantsLogs_, callback, "on_log"); }
  bool wantsBlocks() const { return wantsBlocks_; }
  bool wantsLogs() const { return wantsLogs_; }

  int traverse(visitproc visit, void* arg) const {
    Py_VISIT(onBlock_.ptr());
    Py_VISIT(onLog_.ptr());
    return 0;
  }
  void clear() {
    wantsBlocks_ = wantsLogs_ = false;
    onBlock_ = onLog_ = py::none();
  }

 private:
  static int checked(int productType) {
    if (!algorithm::isProductType(productType))
      throw py::value_error("expected a product type 0, 1 or 2, found " +
                            std::to_string(productType));
    return productType;
  }

  static std::string calibrationBytes(const py::object& calibration) {
    const std::string bytes = bytesOf(calibration);
    if (bytes.size() != sizeof(algorithm::StereoCalibration))
      throw py::value_error("calibration: expected 920 bytes, found " +
                            std::to_string(bytes.size()));
    return bytes;
  }

  static void set(py::object& kept, std::atomic<bool>& wanted, const py::object& callback,
                  const char* name) {
    if (!callback.is_none() && PyCallable_Check(callback.ptr()) == 0)
      throw py::type_error(std::string(name) + ": expected a function or None");
    kept = callback;
    wanted = !callback.is_none();
  }

  void give(int streamType, const std::string& payload, const char* what) {
    run(what, [&](algorithm::AlgBase& alg) {
      return alg.InputStream(streamType, unsignedBytes(payload), 0,
                             static_cast<int>(payload.size()));
    });
  }

  template <typename Call>
  void run(const char* what, const Call& call) {
    Pipeline::instance().run(*this, what, call);
  }

  py::object onBlock_ = py::none(), onLog_ = py::none();
  std::atomic<bool> wantsBlocks_{false}, wantsLogs_{false};
};

bool Pipeline::Deliver(const void* buffer, int, int) {
  if (frame_ == nullptr || !frame_->host->wantsBlocks()) return true;
  callBack([&] {
    const py::object callback = frame_->host->onBlock();
    // The array's base; who still has the array, or a part of it, after the call holds it too.
    const py::capsule call(this, "a call of on_block");
    {
      py::array block(py::dtype::of<algorithm::ResultBlock>(), std::vector<py::ssize_t>(), buffer,
                      call);
      block.attr("setflags")(py::arg("write") = false);
      callback(block);
    }
    if (call.ref_count() == 1) return;
    PyErr_SetString(PyExc_BufferError,
                    "on_block kept its block, or a part of it, beyond the call: the memory is the "
                    "library's and changes with the next packet. Keep block.copy()");
    throw py::error_already_set();
  });
  return true;
}

bool Pipeline::Log(int level, const char* message) {
  if (frame_ == nullptr) return true;
  std::string text = message;
  while (!text.empty() && text.back() == '\n') text.pop_back();
  frame_->messages += (frame_->messages.empty() ? "" : "; ") + text;
  if (frame_->host->wantsLogs()) callBack([&] { frame_->host->onLog()(level, text); });
  return true;
}

/// Hosts are often held by their own callbacks: the garbage collector looks into them.
void collectGarbage(PyHeapTypeObject* type) {
  type->ht_type.tp_flags |= Py_TPFLAGS_HAVE_GC;
  type->ht_type.tp_traverse = [](PyObject* self, visitproc visit, void* arg) {
    Py_VISIT(Py_TYPE(self));
    auto* const holder = reinterpret_cast<py::detail::instance*>(self);
    if (!holder->get_value_and_holder().holder_constructed()) return 0;
    return py::cast<Host&>(py::handle(self)).traverse(visit, arg);
  };
  type->ht_type.tp_clear = [](PyObject* self) {
    auto* const holder = reinterpret_cast<py::detail::instance*>(self);
    if (holder->get_value_and_holder().holder_constructed())
      py::cast<Host&>(py::handle(self)).clear();
    return 0;
  };
}

}  // namespace

void addHost(py::module_& module) {
  py::class_<Host>(module, "Host", py::custom_type_setup(collectGarbage))
      .def(py::init<int, py::object>(), py::arg("product_type"), py::arg("calibration"))
      .def("init", &Host::init, py::arg("product_type"), py::arg("calibration"))
      .def("feed", &Host::feed, py::arg("packet"), py::arg("stamp") = py::none())
      .def("input", &Host::input, py::arg("stream_type"), py::arg("payload"))
      .def("pose", &Host::pose, py::arg("object"), py::arg("stamp") = py::none())
      .def("heading", &Host::heading, py::arg("orientation"), py::arg("value") = 0)
      .def_property("filter_mode", &Host::filterMode, &Host::setFilterMode)
      .def_property("on_block", &Host::onBlock, &Host::setOnBlock)
      .def_property("on_log", &Host::onLog, &Host::setOnLog)
      .def_property_readonly("fixed_code", &Host::fixedCode)
      .def_property_readonly("product_type", &Host::productType);
}

}  // namespace bindings
