#include "harness.h"

static void recordings_and_calibration_files_say_that_they_are_not_there(void) {
  alg_host* host = scene_host();
  alg_recording* recording = NULL;
  alg_calibration calibration = scene_calibration();
  alg_findings* findings = NULL;
  CHECK_STATUS(ALG_NOT_AVAILABLE, alg_host_record(host, "x.algrec", NULL));
  CHECK_STATUS(ALG_NOT_AVAILABLE, alg_host_record_stop(host, NULL));
  CHECK_STATUS(ALG_NOT_AVAILABLE, alg_recording_open("x.algrec", &recording));
  CHECK_STATUS(ALG_NOT_AVAILABLE, alg_recording_close(recording));
  CHECK_STATUS(ALG_NOT_AVAILABLE,
               alg_calibration_load("x.json", NULL, &calibration, sizeof calibration));
  CHECK_STATUS(ALG_NOT_AVAILABLE,
               alg_calibration_check(&calibration, sizeof calibration, NULL, &findings));
  OK(alg_host_close(host));
}

const test not_available_tests[] = {{"recordings_and_calibration_files_say_that_they_are_not_there",
                                     recordings_and_calibration_files_say_that_they_are_not_there},
                                    {NULL, NULL}};
