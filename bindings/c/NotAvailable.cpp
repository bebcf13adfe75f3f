// What a build without SQLite and yaml-cpp has in the place of recordings and calibration files.
#include <bindings/c/Guard.h>

namespace {

alg_status notAvailable() {
  return c_interface::failed(ALG_NOT_AVAILABLE,
                             "recordings and calibration files: not available in this build");
}

}  // namespace

alg_status alg_host_record(alg_host*, const char*, const alg_record_options*) {
  return notAvailable();
}

alg_status alg_host_record_stop(alg_host*, alg_record_status*) {
  return notAvailable();
}

alg_status alg_host_record_status(alg_host*, alg_record_status*) {
  return notAvailable();
}

alg_status alg_recording_open(const char*, alg_recording**) {
  return notAvailable();
}

alg_status alg_recording_close(alg_recording*) {
  return notAvailable();
}

alg_status alg_recording_info_of(alg_recording*, alg_recording_info*) {
  return notAvailable();
}

alg_status alg_recording_fact(alg_recording*, const char*, const char**) {
  return notAvailable();
}

alg_status alg_recording_calibration(alg_recording*, alg_calibration*, size_t) {
  return notAvailable();
}

alg_status alg_recording_next(alg_recording*, const alg_call**) {
  return notAvailable();
}

alg_status alg_recording_seek(alg_recording*, int64_t) {
  return notAvailable();
}

alg_status alg_call_info_of(const alg_call*, alg_call_info*) {
  return notAvailable();
}

alg_status alg_call_payload(const alg_call*, const uint8_t**, size_t*) {
  return notAvailable();
}

alg_status alg_call_answer(const alg_call*, const uint8_t**, size_t*) {
  return notAvailable();
}

alg_status alg_call_pose(const alg_call*, alg_pose*) {
  return notAvailable();
}

alg_status alg_call_heading(const alg_call*, alg_heading*) {
  return notAvailable();
}

alg_status alg_call_block(const alg_call*, uint32_t, alg_block*) {
  return notAvailable();
}

alg_status alg_call_message(const alg_call*, uint32_t, int32_t*, const char**) {
  return notAvailable();
}

alg_status alg_recording_replay(alg_recording*, const alg_replay_options*, alg_replay_result*) {
  return notAvailable();
}

alg_status alg_recording_difference(alg_recording*, const char**) {
  return notAvailable();
}

alg_status alg_calibration_load(const char*, const alg_calibration_options*, alg_calibration*,
                                size_t) {
  return notAvailable();
}

alg_status alg_calibration_check(const alg_calibration*, size_t, const char*, alg_findings**) {
  return notAvailable();
}

alg_status alg_findings_count(alg_findings*, uint32_t*) {
  return notAvailable();
}

alg_status alg_findings_at(alg_findings*, uint32_t, const char**, const char**) {
  return notAvailable();
}

alg_status alg_findings_close(alg_findings*) {
  return notAvailable();
}
