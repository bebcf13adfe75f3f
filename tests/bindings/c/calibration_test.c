#include "harness.h"

#include <math.h>

/* OpenCV's files of one rig, as one file and as two. */
#define BOTH_IN_ONE "stereo_fisheye.yml"

static uint32_t count_of(alg_findings* findings) {
  uint32_t count = 0;
  OK(alg_findings_count(findings, &count));
  return count;
}

static void file_is_loaded_in_millimetres(void) {
  alg_calibration calibration;
  alg_calibration_options options = {.size = sizeof options, .unit = "m"}; /* T = -0.1003, ... */
  OK(alg_calibration_load(ALG_OPENCV_FILES "/" BOTH_IN_ONE, &options, &calibration,
                          sizeof calibration));
  CHECK(calibration.left_intrinsics[0] == 381.2 && calibration.left_intrinsics[5] == 238.4);
  CHECK(fabs(calibration.translation[0] + 100.3) < 1e-9);
  options.unit = "cm";
  OK(alg_calibration_load(ALG_OPENCV_FILES "/" BOTH_IN_ONE, &options, &calibration,
                          sizeof calibration));
  CHECK(fabs(calibration.translation[0] + 1.003) < 1e-9);
}

static void two_files_are_loaded_as_one_calibration(void) {
  alg_calibration one, two;
  alg_calibration_options options = {.size = sizeof options, .unit = "m"};
  OK(alg_calibration_load(ALG_OPENCV_FILES "/" BOTH_IN_ONE, &options, &one, sizeof one));
  options.second_path = ALG_OPENCV_FILES "/extrinsics.yml";
  OK(alg_calibration_load(ALG_OPENCV_FILES "/intrinsics.yml", &options, &two, sizeof two));
  CHECK(memcmp(one.rotation, two.rotation, sizeof one.rotation) == 0);
  CHECK(memcmp(one.left_intrinsics, two.left_intrinsics, sizeof one.left_intrinsics) == 0);
}

static void what_the_library_cannot_use_is_refused(void) {
  alg_calibration calibration;
  memset(&calibration, 0x5A, sizeof calibration);
  const alg_calibration before = calibration;
  /* No unit is stated in it. */
  CHECK_STATUS(ALG_FILE, alg_calibration_load(ALG_OPENCV_FILES "/" BOTH_IN_ONE, NULL, &calibration,
                                              sizeof calibration));
  CHECK_STATUS(ALG_FILE,
               alg_calibration_load("no_such_file.yml", NULL, &calibration, sizeof calibration));
  CHECK(strncmp(alg_error_text(), "no_such_file.yml: ", 18) == 0);
  alg_calibration_options options = {.size = sizeof options, .unit = "furlong"};
  CHECK_STATUS(ALG_BAD_ARGUMENT, alg_calibration_load(ALG_OPENCV_FILES "/" BOTH_IN_ONE, &options,
                                                      &calibration, sizeof calibration));
  CHECK_STATUS(ALG_BAD_SIZE, alg_calibration_load("x", NULL, &calibration, 919));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_calibration_load(NULL, NULL, &calibration, 920));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_calibration_load("x", NULL, NULL, 920));
  CHECK(memcmp(&calibration, &before, sizeof before) == 0);
}

static void check_finds_nothing_in_a_good_one_and_names_what_is_wrong(void) {
  alg_calibration calibration = scene_calibration();
  alg_findings* findings = NULL;
  OK(alg_calibration_check(&calibration, sizeof calibration, NULL, &findings));
  CHECK(count_of(findings) == 0);
  CHECK_STATUS(ALG_NONE, alg_findings_at(findings, 0, NULL, NULL));
  OK(alg_findings_close(findings));

  calibration.rotation[0] = 1.5; /* no rotation any more */
  OK(alg_calibration_check(&calibration, sizeof calibration, NULL, &findings));
  int found = 0;
  for (uint32_t i = 0; i < count_of(findings); ++i) {
    const char *code = NULL, *text = NULL;
    OK(alg_findings_at(findings, i, &code, &text));
    found += strcmp(code, "rotation") == 0 && strstr(text, "R R^T") != NULL;
  }
  CHECK(found == 1);
  OK(alg_findings_close(findings));
  uint32_t count = 0;
  CHECK_STATUS(ALG_BAD_HANDLE, alg_findings_count(findings, &count));
  CHECK_STATUS(ALG_BAD_HANDLE, alg_findings_close(findings));
}

static void check_reads_a_recording_and_refuses_what_is_none(void) {
  const alg_calibration calibration = scene_calibration();
  alg_findings* findings = NULL;
  alg_host* host = scene_host();
  const alg_record_options options = {.size = sizeof options, .overwrite = 1};
  OK(alg_host_record(host, "c_checked.algrec", &options));
  OK(alg_host_feed(host, scene_packet, sizeof scene_packet));
  OK(alg_host_close(host));
  OK(alg_calibration_check(&calibration, sizeof calibration, "c_checked.algrec", &findings));
  const char* code = NULL;
  OK(alg_findings_at(findings, 0, &code, NULL)); /* one packet has one pair */
  CHECK(strcmp(code, "few-pairs") == 0);
  OK(alg_findings_close(findings));
  CHECK_STATUS(ALG_FILE, alg_calibration_check(&calibration, sizeof calibration, "no_such.algrec",
                                               &findings));
}

static void numbers_of_no_calibration_are_refused(void) {
  alg_calibration calibration;
  memset(&calibration, 0, sizeof calibration);
  alg_findings* findings = NULL;
  CHECK_STATUS(ALG_FILE, alg_calibration_check(&calibration, sizeof calibration, NULL, &findings));
  CHECK(findings == NULL);
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_calibration_check(NULL, sizeof calibration, NULL, &findings));
  CHECK_STATUS(ALG_BAD_SIZE, alg_calibration_check(&calibration, 1, NULL, &findings));
}

const test calibration_tests[] = {
    {"file_is_loaded_in_millimetres", file_is_loaded_in_millimetres},
    {"two_files_are_loaded_as_one_calibration", two_files_are_loaded_as_one_calibration},
    {"what_the_library_cannot_use_is_refused", what_the_library_cannot_use_is_refused},
    {"check_finds_nothing_in_a_good_one_and_names_what_is_wrong",
     check_finds_nothing_in_a_good_one_and_names_what_is_wrong},
    {"check_reads_a_recording_and_refuses_what_is_none",
     check_reads_a_recording_and_refuses_what_is_none},
    {"numbers_of_no_calibration_are_refused", numbers_of_no_calibration_are_refused},
    {NULL, NULL}};
