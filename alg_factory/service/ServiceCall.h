#pragma once

namespace algorithm {

class StereoService;

/// What every operation holds while it is inside the service: the service lives at least as long.
///
/// The service is created by the first call, and destroyed when the library is unloaded or the
/// process exits; if calls are inside at that moment, by the last of them. Calls that come later
/// are refused, and so are all calls in a forked child if one was inside at the fork.
class ServiceCall {
 public:
  /// Throws std::bad_alloc when the service cannot be created; the next call tries again.
  ServiceCall();

  /// False: the call is refused.
  explicit operator bool() const { return service_ != nullptr; }
  StereoService* operator->() const { return service_; }

 private:
  struct Admission {
    Admission();
    ~Admission();
    Admission(const Admission&) = delete;
    Admission& operator=(const Admission&) = delete;
    const bool admitted;
  };

  Admission admission_;
  StereoService* service_ = nullptr;
};

}  // namespace algorithm
