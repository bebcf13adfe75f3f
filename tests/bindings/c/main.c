/* usage: alg_c_tests NAME */
#include "harness.h"

#include <math.h>

alg_host* scene_host(void) {
  const alg_calibration calibration = scene_calibration();
  alg_host* host = NULL;
  OK(alg_host_open(2, &host));
  OK(alg_host_init(host, &calibration, sizeof calibration));
  return host;
}

int is_scene_position(const float* xyz) {
  return fabsf(xyz[0] + 50.0f) < 0.05f && fabsf(xyz[1] - 100.0f) < 0.05f &&
         fabsf(xyz[2] + 995.8f) < 0.05f;
}

static int run(const test* tests, const char* name) {
  for (; tests->name != NULL; ++tests)
    if (strcmp(tests->name, name) == 0) {
      tests->run();
      return 1;
    }
  return 0;
}

int main(int count, char** arguments) {
  const char* name = count == 2 ? arguments[1] : "";
#ifdef ALG_TEST_WITHOUT_FILES
  const int known = run(host_tests, name) || run(not_available_tests, name);
#else
  const int known =
      run(host_tests, name) || run(recording_tests, name) || run(calibration_tests, name);
#endif
  if (!known) fprintf(stderr, "usage: alg_c_tests NAME; no test has the name '%s'\n", name);
  return known ? 0 : 2;
}
