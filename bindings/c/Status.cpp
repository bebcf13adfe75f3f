#include <bindings/c/Guard.h>

#include <alg_factory/api/Version.h>

#include <cstdio>

namespace {

// Plain storage: there may be no memory when it is written, and a thread may end at any time.
thread_local char errorText[1024] = "";

}  // namespace

namespace c_interface {

alg_status failed(alg_status status, const char* text) noexcept {
  std::snprintf(errorText, sizeof errorText, "%s", text);
  return status;
}

}  // namespace c_interface

const char* alg_status_text(alg_status status) {
  switch (status) {
    case ALG_OK:
      return "done";
    case ALG_NONE:
      return "there is none";
    case ALG_NULL_ARGUMENT:
      return "a pointer that must not be null is null";
    case ALG_BAD_ARGUMENT:
      return "a value is outside its range";
    case ALG_BAD_SIZE:
      return "a size does not fit";
    case ALG_BAD_HANDLE:
      return "the handle is closed, or was never open";
    case ALG_BUSY:
      return "not now: another call runs that must be alone";
    case ALG_OTHER_SETTINGS:
      return "the process's one host is open with another product type";
    case ALG_NOT_READY:
      return "the host has no calibration yet";
    case ALG_REFUSED:
      return "the library refused it";
    case ALG_CALLBACK_FAILED:
      return "a callback threw";
    case ALG_NO_MEMORY:
      return "memory ran out";
    case ALG_FILE:
      return "a file cannot be used";
    case ALG_NOT_AVAILABLE:
      return "not available in this build";
    case ALG_INTERNAL:
      return "a mistake inside the library";
    default:
      return "unknown status";
  }
}

const char* alg_error_text() {
  return errorText;
}

const char* alg_version() {
  return alg_factory_version();
}
