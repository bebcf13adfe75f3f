/* Tests in C. Each runs in a process of its own, since the pipeline is one per process. */
#ifndef HARNESS_H
#define HARNESS_H

#include "scene.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define CHECK(condition)                                                          \
  do {                                                                            \
    if (!(condition)) {                                                           \
      fprintf(stderr, "%s:%d: not so: %s (%s)\n", __FILE__, __LINE__, #condition, \
              alg_error_text());                                                  \
      exit(1);                                                                    \
    }                                                                             \
  } while (0)

#define CHECK_STATUS(expected, call)                                                  \
  do {                                                                                \
    const alg_status status_ = (call);                                                \
    if (status_ != (expected)) {                                                      \
      fprintf(stderr, "%s:%d: %s: %s, expected %s (%s)\n", __FILE__, __LINE__, #call, \
              alg_status_text(status_), alg_status_text(expected), alg_error_text()); \
      exit(1);                                                                        \
    }                                                                                 \
  } while (0)

#define OK(call) CHECK_STATUS(ALG_OK, call)

typedef struct test {
  const char* name;
  void (*run)(void);
} test;

alg_host* scene_host(void); /* open, product type 2, configured */
int is_scene_position(const float* xyz);

extern const test host_tests[];
extern const test recording_tests[];
extern const test calibration_tests[];
extern const test not_available_tests[];

#endif
